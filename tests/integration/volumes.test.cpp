// SPDX-License-Identifier: MIT
// What becomes of real volumes when they are attached, mounted, moved, hidden and taken away.
#include <sys/mount.h>

#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

std::string upperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

void expectIdentityOf(const LoopDevice& device, const DictionarySnapshot& description) {
  ASSERT_NE(description, nullptr);
  ASSERT_NE(description->uuid("DAVolumeUUID"), nullptr);
  EXPECT_EQ(description->uuid("DAVolumeUUID")->string(), upperCase(blkidValue(device.node(), "UUID")));
  ASSERT_NE(description->text(kDiskVolumeName), nullptr);
  EXPECT_EQ(*description->text(kDiskVolumeName), blkidValue(device.node(), "LABEL"));
}

class LifeStory : public VolumeStory, public ::testing::WithParamInterface<const char*> {};

TEST_P(LifeStory, AVolumeIsAttachedMountedMovedUnmountedAndDetached) {
  const std::string kind = GetParam(), first = "first", second = "second";
  if (const auto missing = missingForImages(kind); !missing.empty()) GTEST_SKIP() << missing;
  Observer observer(space().scratch());
  LoopDevice device = newVolume(kind, "Card One");
  const auto attached = observer.unmounted(device.name());
  expectIdentityOf(device, attached);
  EXPECT_FALSE(attached->contains(kDiskURLKey));
  const double time = attached->doubleValue(kDiskAppearanceTimeKey);

  mountVolume(device.node(), space().folder(first), kind);
  observer.expect({"added first"});
  EXPECT_FALSE(observer.isUnmounted(device.name()));
  const auto drive = observer.drive(first);
  expectIdentityOf(device, drive);
  EXPECT_EQ(*drive->text(kDiskUUIDKey), drive->uuid("DAVolumeUUID")->string());
  EXPECT_EQ(*drive->text("DAVolumeKind"), kind);
  EXPECT_EQ(*drive->text("DAMediaBSDName"), device.name());
  EXPECT_EQ(drive->boolValue(kDiskMountedPriorToApplicationInstance), false);
  moveMount(space().path(first), space().folder(second));
  observer.expect({"removed first", "added second"});
  unmount(space().path(second));
  observer.expect({"removed second"});
  const auto last = observer.unmounted(device.name());
  expectIdentityOf(device, last);
  EXPECT_EQ(last->doubleValue(kDiskAppearanceTimeKey), time) << "the medium never left";
  device.detach();
  EXPECT_TRUE(observer.isForgotten(device.name()));
  observer.expect({});
}

INSTANTIATE_TEST_SUITE_P(, LifeStory, ::testing::Values("ext4", "xfs", "btrfs"),
                         [](const auto& story) { return std::string(story.param); });

TEST_F(VolumeStory, EachMountedSubvolumeOfABtrfsIsADriveAndTheLastOneLeavesTheDisk) {
  if (const auto missing = missingForImages("btrfs"); !missing.empty()) GTEST_SKIP() << missing;
  const LoopDevice device = newVolume("btrfs", "Tree");
  const std::string whole = space().folder("whole"), part = space().folder("part");
  mountVolume(device.node(), whole, "btrfs");
  Observer observer(space().scratch());
  observer.expect({"added whole"});
  EXPECT_EQ(observer.drive("whole")->boolValue(kDiskMountedPriorToApplicationInstance), true);
  ASSERT_EQ(run({"btrfs", "subvolume", "create", whole + "/@home sweet"}).exitCode, 0);
  mountVolume(device.node(), part, "btrfs", "subvol=@home sweet");
  observer.expect({"added part"});
  expectIdentityOf(device, observer.drive("part"));
  unmount(whole);
  observer.expect({"removed whole"});
  EXPECT_FALSE(observer.isUnmounted(device.name()));
  unmount(part);
  observer.expect({"removed part"});
  expectIdentityOf(device, observer.unmounted(device.name()));
}

TEST_F(FuseStory, AFuseVolumeIsADriveWhileItIsMountedWhateverBecomesOfItsServer) {
  Observer observer(space().scratch());
  const std::string point = space().folder("fuse");
  {
    FuseServer server(point);
    observer.expect({"added fuse"});
    EXPECT_EQ(*observer.drive("fuse")->text("DAVolumeKind"), "fuse.kmvhello");
    EXPECT_FALSE(observer.drive("fuse")->contains("DAMediaBSDName"));
    server.terminate();
    observer.expect({"removed fuse"});
  }
  FuseServer server(point);
  observer.expect({"added fuse"});
  const int busy = open((point + "/clips").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(busy, 0);
  server.kill();
  observer.expect({});  // the dead mount is still mounted
  unmount(point, MNT_DETACH);
  observer.expect({"removed fuse"});
  close(busy);
  observer.expect({});
}

TEST_F(VolumeStory, AMountOverAVolumeOrAFolderAboveItHidesItUntilItGoes) {
  const LoopDevice below = newVolume("ext4", "Below"), above = newVolume("ext4", "Above");
  Observer observer(space().scratch());
  const std::string outer = space().folder("outer"), point = space().folder("outer/point");
  mountVolume(below.node(), point, "ext4");
  observer.expect({"added outer/point"});
  mountVolume(above.node(), point, "ext4");
  observer.expect({"removed outer/point", "added outer/point"});
  EXPECT_EQ(*observer.drive("outer/point")->text(kDiskVolumeName), "Above");
  EXPECT_EQ(observer.hidingRule("outer/point"), "covered");
  mountVolume("nothing", outer, "tmpfs");
  observer.expect({"removed outer/point"});
  unmount(outer);
  observer.expect({"added outer/point"});
  unmount(point);
  observer.expect({"removed outer/point", "added outer/point"});
  EXPECT_EQ(*observer.drive("outer/point")->text(kDiskVolumeName), "Below");

  const int file = open((point + "/file").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  unmount(point, MNT_DETACH);
  observer.expect({"removed outer/point"});
  EXPECT_EQ(write(file, "x", 1), 1) << "it lives on for those who have it open";
  close(file);
  observer.expect({});
}

TEST_F(VolumeStory, OneVolumeMountedInSeveralPlacesIsOneDriveAndWhatIsNoDriveNone) {
  const LoopDevice device = newVolume("ext4", "Twice");
  Observer observer(space().scratch());
  const std::string first = space().folder("first"), again = space().folder("again");
  const std::string bound = space().folder("bound"), part = space().folder("part");
  mountVolume(device.node(), first, "ext4");
  observer.expect({"added first"});
  ASSERT_EQ(mkdir((first + "/clips").c_str(), 0755), 0);
  bindMount(first, bound);
  bindMount(first + "/clips", part);
  mountVolume(device.node(), again, "ext4");
  remountReadOnly(first);
  mountVolume("nothing", space().folder("memory"), "tmpfs");
  mountVolume("overlay", space().folder("overlay"), "overlay",
              "lowerdir=" + space().folder("lower") + ":" + space().folder("lowest"));
  observer.expect({});
  for (const auto& [name, rule] : {std::pair("bound", "bind"),
                                   {"part", "folder"},
                                   {"again", "bind"},
                                   {"memory", "pseudo"},
                                   {"overlay", "pseudo"}})
    EXPECT_EQ(observer.hidingRule(name), rule) << name;
  unmount(bound);
  unmount(first);
  observer.expect({"removed first", "added again"});
  EXPECT_FALSE(observer.isUnmounted(device.name()));
  unmount(again);  // what is left of the volume stands for it
  observer.expect({"removed again", "added part"});
  unmount(part);
  observer.expect({"removed part"});
  EXPECT_NE(observer.unmounted(device.name()), nullptr);
}

}  // namespace
}  // namespace kmv::integration
