// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::testing {
namespace {

TEST(Lifecycle, KeyVariablesAreEmptyUntilTheRegistryIsAskedFor) {
  SimulatedPlatform::install();
  for (KeyVariable* variable : {&kDAVolumeKindKey, &kDAMediaBSDName, &kDAMediaBSDUnit, &kDAMediaContentKey}) {
    EXPECT_FALSE(variable->value());
  }
  KMVDiskArbiter::sharedInstance();
  EXPECT_EQ(kDAVolumeKindKey.value(), "DAVolumeKind");
  EXPECT_EQ(kDAMediaBSDName.value(), "DAMediaBSDName");
  EXPECT_EQ(kDAMediaBSDUnit.value(), "DAMediaBSDUnit");
  EXPECT_EQ(kDAMediaContentKey.value(), "DAMediaContent");
  kDAMediaBSDName.assign("spoilt");
  KMVDiskArbiter::sharedInstance();
  EXPECT_EQ(kDAMediaBSDName.value(), "DAMediaBSDName") << "filled on every call";
}

TEST(Lifecycle, NothingIsKnownBeforeTheStart) {
  Registry registry;
  registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  KMVDiskArbiter& arbiter = registry.arbiter();
  registry.machine.runUntilIdle();
  EXPECT_EQ(arbiter.presentDiskDictionaries(), nullptr);
  EXPECT_TRUE(arbiter.mountedDictionaries().empty());
  EXPECT_TRUE(arbiter.unmountedDictionaries().empty());
  EXPECT_EQ(arbiter.readerWriterSemaphore()->count(), 8);
  EXPECT_TRUE(arbiter.arbiterQueue()->label().ends_with(".drive.diskarbiter"));
  EXPECT_TRUE(arbiter.assetMutexQueue()->label().ends_with(".drive.diskarbiter.assetmutex"));
  arbiter.removeDiskAtURLFromTheList(URL::fileURLWithPath("/Volumes/A", true));
  arbiter.removeDiskWithUUIDFromTheList("nobody");
  EXPECT_TRUE(registry.heard.empty());
}

TEST(Lifecycle, StartReportsWhatExistsOnceAndMarksWhatWasMounted) {
  Registry registry;
  registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  registry.machine.plugIn({.name = "B"});
  registry.start();
  registry.arbiter().startArbiter();  // no second registration: the platform would refuse it
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), (Lines{"new /Volumes/A"}));
  EXPECT_EQ(registry.heard[0].queue, "main");
  EXPECT_EQ(registry.drive("/Volumes/A")->value(kDiskMountedPriorToApplicationInstance), Value(true));
  EXPECT_EQ(registry.arbiter().unmountedDictionaries().size(), 1u);
  EXPECT_EQ(registry.arbiter().disksAlreadyMountedAtInit()->count(), 0u);
}

TEST(Lifecycle, OnlyTheFirstRegistrationOfAVolumeCountsAsMountedBefore) {
  Registry registry;
  const DiskId disk = registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  registry.start();
  registry.machine.unmount(disk);
  registry.machine.mount(disk, "/Volumes/A");
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), (Lines{"new /Volumes/A", "removed /Volumes/A", "new /Volumes/A"}));
  EXPECT_EQ(registry.drive("/Volumes/A")->value(kDiskMountedPriorToApplicationInstance), Value(false));
}

TEST(Lifecycle, SnapshotsDoNotFollowTheLiveDrives) {
  Registry registry;
  registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  KMVDiskArbiter& arbiter = registry.start();
  const MountedDictionaries before = arbiter.mountedDictionaries();
  registry.drive("/Volumes/A")->set(kDiskVolumeName, "changed");
  EXPECT_EQ(*before.begin()->second->text(kDiskVolumeName), "A");
  EXPECT_EQ(*arbiter.mountedDictionaries().begin()->second->text(kDiskVolumeName), "changed");
}

TEST(Lifecycle, ASecondRegistryMayOnlyStartAfterTheFirst) {
  Registry registry;
  registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  registry.start();
  KMVDiskArbiter second;
  second.startArbiter();  // the once-only block has run for the process: nothing happens
  EXPECT_EQ(second.presentDiskDictionaries(), nullptr);
}

TEST(LifecycleDeathTest, ASecondRegistryThatStartsFirstStopsTheProcess) {
  SimulatedPlatform::install();
  KMVDiskArbiter second;
  EXPECT_DEATH(second.startArbiter(), "KMVDiskArbiter.*NO");
}

TEST(Lifecycle, CallbacksWithoutContextOrDescriptionDoNothing) {
  struct Nameless : Disk {
    std::optional<Dictionary> copyDescription() const override { return std::nullopt; }
  } nameless;
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  const ChangedKeys keys{"DAVolumePath"};
  for (void* context : {static_cast<void*>(nullptr), static_cast<void*>(&arbiter)}) {
    NewDiskAppeared(&nameless, context);
    DiskDisappeared(&nameless, context);
    DiskDescriptionChanged(&nameless, &keys, context);
    NewDiskAppeared(nullptr, context);
    DiskDescriptionChanged(nullptr, nullptr, context);
  }
  registry.machine.runUntilIdle();
  EXPECT_TRUE(registry.heard.empty());
  EXPECT_TRUE(arbiter.unmountedDictionaries().empty());
}

}  // namespace
}  // namespace kmv::testing
