// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::testing {
namespace {

TEST(Changes, MountingAKnownDiskMovesItToThePresentDrives) {
  Registry registry;
  const DiskId disk = registry.machine.plugIn({.name = "A"});
  KMVDiskArbiter& arbiter = registry.start();
  registry.machine.mount(disk, "/Volumes/A");
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), (Lines{"new /Volumes/A"}));
  EXPECT_TRUE(arbiter.unmountedDictionaries().empty());
  EXPECT_EQ(registry.drive("/Volumes/A")->value(kDiskMountedPriorToApplicationInstance), Value(false));
}

TEST(Changes, UnmountingMovesItBackWithoutTheRegistrysKeys) {
  Registry registry;
  const DiskId disk = registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  KMVDiskArbiter& arbiter = registry.start();
  registry.machine.unmount(disk);
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), (Lines{"new /Volumes/A", "removed /Volumes/A"}));
  ASSERT_EQ(arbiter.unmountedDictionaries().size(), 1u);
  EXPECT_FALSE(arbiter.unmountedDictionaries()[0]->contains(kDiskUUIDKey));
}

TEST(Changes, ARenamedVolumeKeepsItsDriveUnderTheNewPath) {
  Registry registry;
  const DiskId disk = registry.machine.plugIn({.name = "Old", .mountPoint = "/Volumes/Old"});
  KMVDiskArbiter& arbiter = registry.start();
  const auto drive = registry.drive("/Volumes/Old");
  registry.machine.rename(disk, "New Name");
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), (Lines{"new /Volumes/Old", "changed /Volumes/New Name"}));
  EXPECT_EQ(registry.heard.back().object.drive(), drive);
  EXPECT_EQ(registry.heard.back().queue, arbiter.arbiterQueue()->label());
  EXPECT_EQ(registry.drive("/Volumes/New Name"), drive);
  EXPECT_EQ(registry.drive("/Volumes/Old"), nullptr);
  EXPECT_EQ(drive->value(kDiskOldURLKey), Value(URL::fileURLWithPath("/Volumes/Old", true)));
  EXPECT_EQ(drive->value(kDiskVolumeName), Value("New Name"));
  EXPECT_EQ(arbiter.volumeURLsCurrentlyMounted()->snapshot(),
            std::vector<URL>{URL::fileURLWithPath("/Volumes/New Name", true)});
  registry.machine.unmount(disk);
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), (Lines{"removed /Volumes/New Name"}));
}

TEST(Changes, ANameOrAPathAloneChangesNothing) {
  Registry registry;
  const DiskId elsewhere = registry.machine.plugIn({.name = "A", .mountPoint = "/media/A"});
  const DiskId moved = registry.machine.plugIn({.name = "B", .mountPoint = "/Volumes/B"});
  KMVDiskArbiter& arbiter = registry.start();
  registry.news();
  registry.machine.rename(elsewhere, "A2");
  registry.machine.changeDescriptionKey(moved, "DAVolumePath", URL::fileURLWithPath("/Volumes/Other", true));
  registry.machine.runUntilIdle();
  EXPECT_TRUE(registry.news().empty());
  EXPECT_EQ(registry.drive("/media/A")->value(kDiskVolumeName), Value("A"));
  EXPECT_NE(registry.drive("/Volumes/B"), nullptr);
  EXPECT_EQ(arbiter.presentDiskDictionaries()->count(), 2u);
}

TEST(Changes, PathUUIDAndAppearanceTogetherMeanAnotherDisk) {
  Registry registry;
  const DiskId disk = registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  KMVDiskArbiter& arbiter = registry.start();
  registry.news();
  Dictionary gone = registry.machine.description(disk);
  gone.remove("DAVolumePath");
  arbiter.diskDidChangeWithDictionary(std::make_shared<const Dictionary>(gone),
                                      {"DAVolumePath", "DAVolumeUUID", "DAAppearanceTime"});
  registry.machine.runUntilIdle();
  EXPECT_TRUE(registry.news().empty());
  EXPECT_NE(registry.drive("/Volumes/A"), nullptr);
  EXPECT_TRUE(arbiter.unmountedDictionaries().empty());
}

TEST(Changes, AUUIDThatBecomesKnownWhileMountedDoesNotLoseTheDrive) {
  Registry registry;
  const DiskId disk = registry.machine.plugIn(
      {.name = "A", .mountPoint = "/Volumes/A", .description = {{"DAVolumeUUID", std::nullopt}}});
  registry.start();
  registry.news();
  registry.machine.changeDescriptionKey(disk, "DAVolumeUUID",
                                        *UUID::fromString("6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b60"));
  registry.machine.unmount(disk);
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), (Lines{"removed /Volumes/A"}));
}

TEST(Changes, ADriveTakenAwayBeforeItsRenameIsStillAnnouncedButNotListed) {
  Registry registry;
  const DiskId disk = registry.machine.plugIn({.name = "Old", .mountPoint = "/Volumes/Old"});
  KMVDiskArbiter& arbiter = registry.start();
  const auto drive = registry.drive("/Volumes/Old");
  registry.news();
  // The same live drive under another key: found by its content, while its own path leads to nothing.
  arbiter.presentDiskDictionaries()->remove(URL::fileURLWithPath("/Volumes/Old", true));
  arbiter.presentDiskDictionaries()->set(URL::fileURLWithPath("/alias", true), drive);
  registry.machine.rename(disk, "New");
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), (Lines{"changed /Volumes/New"}));
  EXPECT_EQ(registry.drive("/Volumes/New"), nullptr);
  EXPECT_EQ(registry.drive("/alias"), drive);
}

}  // namespace
}  // namespace kmv::testing
