// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

/// Notes what it is shown and adds a key.
class Annotator : public KMVDiskAdditionalInformationProtocol {
 public:
  Annotator(Registry& registry, std::string mark) : registry_(registry), mark_(std::move(mark)) {}

  bool addInformationAboutDiskDictionary(const std::shared_ptr<DriveDictionary>& drive) override {
    const URL path = *drive->value(kDiskURLKey)->asURL();
    const bool isListed = registry_.arbiter().presentDiskDictionaries()->find(path) == drive;
    shown.push_back(mark_ + " " + path.path() + " on " + registry_.machine.currentQueueLabel() +
                    (isListed ? " listed" : "") + (drive->value(kDiskUUIDKey) ? " identified" : "") +
                    " free " + std::to_string(registry_.arbiter().readerWriterSemaphore()->count()));
    drive->set("annotation", mark_);
    return false;  // ignored
  }
  static inline Lines shown;

 private:
  Registry& registry_;
  std::string mark_;
};

class UnmountedAnnotator : public Annotator {
 public:
  using Annotator::Annotator;
  bool addInformationAboutUnmountedDiskDictionary(const std::shared_ptr<DriveDictionary>& disk) override {
    shown.push_back("unmounted " + *disk->value(kDiskVolumeName)->asText());
    disk->set("annotation", true);
    return true;
  }
};

using Listeners = RegistryTest;

TEST_F(Listeners, SeeANewDriveListedIdentifiedAndUnlockedBeforeItIsAnnounced) {
  const auto first = std::make_shared<Annotator>(registry, "first"),
             second = std::make_shared<Annotator>(registry, "second");
  arbiter.addAdditionalInformationListener(first);
  arbiter.addAdditionalInformationListener(second);
  arbiter.addAdditionalInformationListener(first);  // held once
  const DiskId disk = plugIn("A", "/Volumes/A");
  registry.start();
  const std::string state = " /Volumes/A on " + arbiter.arbiterQueue()->label() + " listed identified free 8";
  EXPECT_EQ(Annotator::shown, (Lines{"first" + state, "second" + state}));
  EXPECT_EQ(registry.heard.at(0).object.drive()->value("annotation"), Value("second"));

  machine.rename(disk, "B");
  machine.unmount(disk);
  machine.runUntilIdle();
  EXPECT_EQ(Annotator::shown.size(), 2u) << "not for renames and removals";
  arbiter.removeAdditionalInformationListener(second);
  arbiter.arbiterQueue()->sync(
      [&] { arbiter.removeAdditionalInformationListener(second); });  // nothing to do
  machine.mount(disk, "/Volumes/B");
  machine.runUntilIdle();
  EXPECT_EQ(Annotator::shown.size(), 3u);
}

TEST_F(Listeners, SeeUnmountedDisksOnlyWhenTheyAskAndAnnotateACopy) {
  arbiter.addAdditionalInformationListener(std::make_shared<Annotator>(registry, "plain"));
  arbiter.addAdditionalInformationListener(std::make_shared<UnmountedAnnotator>(registry, "curious"));
  plugIn("A");
  registry.start();
  EXPECT_EQ(Annotator::shown, (Lines{"unmounted A"}));
  EXPECT_FALSE(arbiter.unmountedDictionaries().at(0)->contains("annotation"));
}

}  // namespace
}  // namespace kmv::simulation
