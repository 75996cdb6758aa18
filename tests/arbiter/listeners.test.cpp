// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::testing {
namespace {

/// Notes what it is shown and adds a key.
class Annotator : public KMVDiskAdditionalInformationProtocol {
 public:
  Annotator(Registry& registry, std::string mark) : registry_(registry), mark_(std::move(mark)) {}

  bool addInformationAboutDiskDictionary(const std::shared_ptr<DriveDictionary>& drive) override {
    const URL path = *drive->value(kDiskURLKey)->asURL();
    shown.push_back(mark_ + " " + path.path() + " on " + registry_.machine.currentQueueLabel());
    isListed = registry_.arbiter().presentDiskDictionaries()->find(path) == drive;
    hasUUID = drive->value(kDiskUUIDKey).has_value();
    unitsFree = registry_.arbiter().readerWriterSemaphore()->count();
    drive->set("annotation", mark_);
    return false;  // ignored
  }

  static inline std::vector<std::string> shown;
  bool isListed = false;
  bool hasUUID = false;
  int unitsFree = -1;

 private:
  Registry& registry_;
  std::string mark_;
};

class UnmountedAnnotator : public Annotator {
 public:
  using Annotator::Annotator;
  bool addInformationAboutUnmountedDiskDictionary(
      const std::shared_ptr<DriveDictionary>& description) override {
    unmounted.push_back(*description->value(kDiskVolumeName)->asText());
    description->set("annotation", true);
    return true;
  }
  std::vector<std::string> unmounted;
};

TEST(Listeners, SeeANewDriveListedIdentifiedAndUnlockedBeforeItIsAnnounced) {
  Registry registry;
  const auto first = std::make_shared<Annotator>(registry, "first");
  const auto second = std::make_shared<Annotator>(registry, "second");
  KMVDiskArbiter& arbiter = registry.arbiter();
  arbiter.addAdditionalInformationListener(first);
  arbiter.addAdditionalInformationListener(second);
  arbiter.addAdditionalInformationListener(first);  // held once
  const DiskId disk = registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  registry.start();
  const std::string queue = arbiter.arbiterQueue()->label();
  EXPECT_EQ(Annotator::shown, (Lines{"first /Volumes/A on " + queue, "second /Volumes/A on " + queue}));
  EXPECT_TRUE(first->isListed);
  EXPECT_TRUE(first->hasUUID);
  EXPECT_EQ(first->unitsFree, 8);
  EXPECT_EQ(registry.heard.at(0).object.drive()->value("annotation"), Value("second"));

  registry.machine.rename(disk, "B");
  registry.machine.unmount(disk);
  registry.machine.runUntilIdle();
  EXPECT_EQ(Annotator::shown.size(), 2u) << "not for renames and removals";
  arbiter.removeAdditionalInformationListener(second);
  arbiter.removeAdditionalInformationListener(second);
  registry.machine.mount(disk, "/Volumes/B");
  registry.machine.runUntilIdle();
  EXPECT_EQ(Annotator::shown.size(), 3u);
}

TEST(Listeners, SeeUnmountedDisksOnlyWhenTheyAskAndAnnotateACopy) {
  Registry registry;
  const auto plain = std::make_shared<Annotator>(registry, "plain");
  const auto curious = std::make_shared<UnmountedAnnotator>(registry, "curious");
  registry.arbiter().addAdditionalInformationListener(plain);
  registry.arbiter().addAdditionalInformationListener(curious);
  registry.machine.plugIn({.name = "A"});
  registry.start();
  EXPECT_EQ(curious->unmounted, (Lines{"A"}));
  EXPECT_TRUE(Annotator::shown.empty());
  EXPECT_FALSE(registry.arbiter().unmountedDictionaries().at(0)->contains("annotation"));
}

TEST(ListenersDeathTest, ChangingTheListenersFromTheArbiterQueueStopsInsteadOfHanging) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  arbiter.arbiterQueue()->async(
      [&] { arbiter.addAdditionalInformationListener(std::make_shared<Annotator>(registry, "x")); });
  EXPECT_DEATH(registry.machine.runUntilIdle(), "drive.diskarbiter");
}

}  // namespace
}  // namespace kmv::testing
