// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

// Which change means what is compared with a plain model in random_events.test.cpp.
using Changes = RegistryTest;

TEST_F(Changes, MountingAndUnmountingMovesADiskBetweenTheListsAndOnlyItsFirstMountWasBefore) {
  const DiskId disk = plugIn("A", "/Volumes/A");
  registry.start();
  EXPECT_EQ(registry.drive("/Volumes/A")->value(kDiskMountedPriorToApplicationInstance), Value(true));
  machine.unmount(disk);
  EXPECT_EQ(news(), (Lines{"new /Volumes/A", "removed /Volumes/A"}));
  ASSERT_EQ(arbiter.unmountedDictionaries().size(), 1u);
  EXPECT_FALSE(arbiter.unmountedDictionaries()[0]->contains(kDiskUUIDKey)) << "without the registry's keys";
  machine.mount(disk, "/Volumes/A");
  EXPECT_EQ(news(), (Lines{"new /Volumes/A"}));
  EXPECT_TRUE(arbiter.unmountedDictionaries().empty());
  EXPECT_EQ(registry.drive("/Volumes/A")->value(kDiskMountedPriorToApplicationInstance), Value(false));
}

TEST_F(Changes, ARenamedVolumeKeepsItsDriveUnderTheNewPath) {
  const DiskId disk = plugIn("Old", "/Volumes/Old");
  registry.start();
  const auto drive = registry.drive("/Volumes/Old");
  machine.rename(disk, "New Name");
  EXPECT_EQ(news(), (Lines{"new /Volumes/Old", "changed /Volumes/New Name"}));
  EXPECT_EQ(registry.heard.back().object.drive(), drive);
  EXPECT_EQ(registry.heard.back().queue, arbiter.arbiterQueue()->label());
  EXPECT_EQ(registry.drive("/Volumes/New Name"), drive);
  EXPECT_EQ(registry.drive("/Volumes/Old"), nullptr);
  EXPECT_EQ(drive->value(kDiskOldURLKey), Value(folder("/Volumes/Old")));
  EXPECT_EQ(drive->value(kDiskVolumeName), Value("New Name"));
  EXPECT_EQ(arbiter.volumeURLsCurrentlyMounted()->snapshot(), std::vector<URL>{folder("/Volumes/New Name")});
  // The same live drive under another key: found by its content, while its own path leads to nothing.
  arbiter.presentDiskDictionaries()->remove(folder("/Volumes/New Name"));
  arbiter.presentDiskDictionaries()->set(folder("/alias"), drive);
  machine.rename(disk, "Newer");
  EXPECT_EQ(news(), (Lines{"changed /Volumes/Newer"})) << "announced but not listed";
  EXPECT_EQ(registry.drive("/Volumes/Newer"), nullptr);
  EXPECT_EQ(registry.drive("/alias"), drive);
}

}  // namespace
}  // namespace kmv::simulation
