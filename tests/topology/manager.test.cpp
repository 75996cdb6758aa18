// SPDX-License-Identifier: MIT
#include "support/Registry.h"
#include "support/Testing.h"

namespace kmv::simulation {
namespace {

std::shared_ptr<KMVDiskBSDBaseWrapper> wrapperOf(const Dictionary& drive) {
  const Value* wrapper = drive.find(kDiskWrapperKey);
  return wrapper == nullptr ? nullptr : std::dynamic_pointer_cast<KMVDiskBSDBaseWrapper>(wrapper->asObject());
}

class Manager : public RegistryTest {
 protected:
  KMVDriveWrapperManager& manager = KMVDriveWrapperManager::sharedInstance();
};

TEST_F(Manager, EveryAnnouncedDriveCarriesItsWrapperAndAUnitGoesWithItsLastDrive) {
  const auto plugInPart = [&](const std::string& name) {
    return machine.plugIn({.mountPoint = "/Volumes/" + name, .bsdName = name, .unit = 4});
  };
  const DiskId first = plugInPart("disk4s1"), second = plugInPart("disk4s2");
  registry.start();
  ASSERT_EQ(registry.heard.size(), 2u);
  std::weak_ptr<KMVRootDiskWrapper> disk;
  for (const Heard& one : registry.heard) {
    const auto wrapper = wrapperOf(*one.object.dictionary());
    ASSERT_NE(wrapper, nullptr);
    EXPECT_EQ(wrapper->bsdUnit(), Value(4));
    EXPECT_TRUE(disk.expired() || disk.lock() == wrapper->rootVolumeWrapper());
    disk = wrapper->rootVolumeWrapper();
  }
  EXPECT_EQ(manager.volumeWrappers(), (KMVDriveWrapperManager::VolumeWrappers{{Value(4.0), disk.lock()}}));
  EXPECT_EQ(disk.lock()->tableOfPartitions()->count(), 2u);

  const auto forgetNews = [&] {
    news();
    registry.heard.clear();
  };
  forgetNews();
  machine.unmount(first);
  machine.unplug(second);
  forgetNews();
  EXPECT_TRUE(disk.expired());
  EXPECT_TRUE(manager.allVolumeWrappers().empty());
  machine.mount(first, "/Volumes/disk4s1");
  machine.runUntilIdle();
  EXPECT_EQ(manager.volumeWrappers().size(), 1u);
}

TEST_F(Manager, ADriveWithoutANameOrANumberIsLoggedAndLeftAsItIs) {
  Lines lines;
  OrvaneLog::defaultLog().setSink([&](OrvaneLog::Level level, std::string_view line) {
    EXPECT_EQ(level, OrvaneLog::Level::debug);
    lines.emplace_back(line);
  });
  const auto isFiled = [&](const Dictionary& contents) {
    const auto drive = std::make_shared<DriveDictionary>(contents);
    const DictionarySnapshot before = drive->snapshot();  // whoever holds the drive's content
    if (!manager.addInformationAboutDiskDictionary(drive)) return *drive->snapshot() != contents;
    EXPECT_EQ(wrapperOf(*drive->snapshot())->backingDictionary(), nullptr) << "nobody keeps its copy";
    return true;
  };
  EXPECT_TRUE(isFiled({{"DAMediaBSDName", "disk4"}, {"DAMediaBSDUnit", 4}}));
  EXPECT_TRUE(lines.empty());
  EXPECT_FALSE(isFiled({{"DAMediaBSDUnit", 4}, {"DAVolumeName", "A"}}));
  EXPECT_EQ(lines,
            (Lines{"KMV-Could not find either name 'nil' or unit '4'", "KMV-RejectedDriveInfo",
                   "KMV-RejectedDriveInfo: DAMediaBSDUnit : 4", "KMV-RejectedDriveInfo: DAVolumeName : A"}));
  lines.clear();
  EXPECT_FALSE(isFiled({{"DAMediaBSDName", "disk4"}, {"DAMediaBSDUnit", "4"}}));
  EXPECT_EQ(lines.at(0), "KMV-Could not find either name 'disk4' or unit '4'");
  EXPECT_FALSE(isFiled({{"DAMediaBSDName", 4}, {"DAMediaBSDUnit", 4}}));
  EXPECT_TRUE(manager.volumeWrappers().empty());
  EXPECT_DEATH(manager.addInformationAboutDiskDictionary(nullptr), "without a drive");
  OrvaneLog::defaultLog().setSink(nullptr);
}

}  // namespace
}  // namespace kmv::simulation
