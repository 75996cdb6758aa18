// SPDX-License-Identifier: MIT
#include <cmath>
#include <cstdint>

#include "support/Registry.h"

namespace kmv::testing {
namespace {

std::shared_ptr<KMVDiskBSDBaseWrapper> wrapperOf(const Dictionary& drive) {
  const Value* wrapper = drive.find(kDiskWrapperKey);
  return wrapper == nullptr ? nullptr : std::dynamic_pointer_cast<KMVDiskBSDBaseWrapper>(wrapper->asObject());
}

TEST(Manager, EveryAnnouncedDriveCarriesItsWrapperAndAUnitGoesWithItsLastDrive) {
  Registry registry;
  const auto plugIn = [&](const std::string& name) {
    return registry.machine.plugIn(
        {.name = name, .mountPoint = "/Volumes/" + name, .bsdName = name, .unit = 4});
  };
  const DiskId first = plugIn("disk4s1"), second = plugIn("disk4s2");
  registry.start();
  const auto& manager = KMVDriveWrapperManager::sharedInstance();
  ASSERT_EQ(registry.heard.size(), 2u);
  std::weak_ptr<KMVRootDiskWrapper> disk;
  for (const Heard& one : registry.heard) {
    const auto wrapper = wrapperOf(*one.object.dictionary());
    ASSERT_NE(wrapper, nullptr);
    EXPECT_EQ(wrapper->bsdUnit(), Value(4));
    EXPECT_EQ(wrapper->backingDictionary(), nullptr) << "nobody keeps the copy that it was made from";
    EXPECT_TRUE(disk.expired() || disk.lock() == wrapper->rootVolumeWrapper());
    disk = wrapper->rootVolumeWrapper();
  }
  EXPECT_EQ(manager.volumeWrappers(), (KMVDriveWrapperManager::VolumeWrappers{{Value(4.0), disk.lock()}}));
  EXPECT_EQ(disk.lock()->tableOfPartitions()->count(), 2u);

  registry.heard.clear();
  registry.news();
  registry.machine.unmount(first);
  registry.machine.unplug(second);
  registry.machine.runUntilIdle();
  registry.heard.clear();
  registry.news();
  EXPECT_TRUE(disk.expired());
  EXPECT_TRUE(manager.allVolumeWrappers().empty());
  registry.machine.mount(first, "/Volumes/disk4s1");
  registry.machine.runUntilIdle();
  EXPECT_EQ(manager.volumeWrappers().size(), 1u);
}

class Rejections : public ::testing::Test {
 protected:
  Rejections() {
    OrvaneLog::defaultLog().setSink([this](OrvaneLog::Level level, std::string_view line) {
      EXPECT_EQ(level, OrvaneLog::Level::debug);
      lines.emplace_back(line);
    });
  }
  ~Rejections() override { OrvaneLog::defaultLog().setSink(nullptr); }

  Registry registry;
  KMVDriveWrapperManager& manager =
      (KMVDiskArbiter::sharedInstance(), KMVDriveWrapperManager::sharedInstance());
  Lines lines;
};

TEST_F(Rejections, TheCopyThatAWrapperIsMadeFromIsKeptByNobody) {
  const auto drive =
      std::make_shared<DriveDictionary>(Dictionary{{"DAMediaBSDName", "disk4"}, {"DAMediaBSDUnit", 4}});
  const DictionarySnapshot before = drive->snapshot();  // whoever holds the drive's content
  EXPECT_TRUE(manager.addInformationAboutDiskDictionary(drive));
  EXPECT_EQ(wrapperOf(*drive->snapshot())->backingDictionary(), nullptr);
}

TEST_F(Rejections, ADriveWithoutANameOrANumberIsLoggedAndLeftAsItIs) {
  const Dictionary nameless{{"DAMediaBSDUnit", 4}, {"DAVolumeName", "A"}};
  const auto drive = std::make_shared<DriveDictionary>(nameless);
  EXPECT_FALSE(manager.addInformationAboutDiskDictionary(drive));
  EXPECT_EQ(*drive->snapshot(), nameless);
  EXPECT_EQ(lines,
            (Lines{"KMV-Could not find either name 'nil' or unit '4'", "KMV-RejectedDriveInfo",
                   "KMV-RejectedDriveInfo: DAMediaBSDUnit : 4", "KMV-RejectedDriveInfo: DAVolumeName : A"}));
  lines.clear();
  EXPECT_FALSE(manager.addInformationAboutDiskDictionary(
      std::make_shared<DriveDictionary>(Dictionary{{"DAMediaBSDName", "disk4"}, {"DAMediaBSDUnit", "4"}})));
  EXPECT_EQ(lines.at(0), "KMV-Could not find either name 'disk4' or unit '4'");
  EXPECT_TRUE(manager.volumeWrappers().empty());
  EXPECT_DEATH(manager.addInformationAboutDiskDictionary(nullptr), "without a drive");
}

TEST(NumberOrder, IsOfWhatNumbersAreWorthWhateverTheirKinds) {
  const NumberOrder less;
  const double beyond = 9223372036854775808.0, nan = std::nan("");
  const std::vector<std::vector<Value>> ascending{{Value(-beyond * 2)},
                                                  {Value(-2), Value(-2.0)},
                                                  {Value(0), Value(false)},
                                                  {Value(0.5)},
                                                  {Value(1), Value(true), Value(1.0)},
                                                  {Value(INT64_MAX)},
                                                  {Value(beyond)},
                                                  {Value(nan), Value("none")}};
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      for (const Value& a : ascending[i]) {
        for (const Value& b : ascending[j])
          EXPECT_EQ(less(a, b), i < j) << a.description() << " " << b.description();
      }
    }
  }
}

}  // namespace
}  // namespace kmv::testing
