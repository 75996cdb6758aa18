// SPDX-License-Identifier: MIT
// What becomes of real volumes when they are attached, mounted, moved, hidden and taken away.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <string>

#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"

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

/// Attached, mounted, unmounted, mounted elsewhere, moved, unmounted, detached.
void tellTheLifeOf(LoopDevice device, const std::string& kind, const Namespace& space, Observer& observer) {
  const std::string first = space.folder("first"), second = space.folder("second"),
                    third = space.folder("third");
  const auto attached = observer.unmounted(device.name());
  ASSERT_NE(attached, nullptr);
  expectIdentityOf(device, attached);
  EXPECT_FALSE(attached->contains(kDiskURLKey));
  const double time = attached->doubleValue(kDiskAppearanceTimeKey);
  EXPECT_GT(time, 0);

  mountVolume(device.node(), first, kind);
  observer.expect({"added first"});
  EXPECT_FALSE(observer.isUnmounted(device.name()));
  const auto drive = observer.drive("first");
  ASSERT_NE(drive, nullptr);
  expectIdentityOf(device, drive);
  EXPECT_EQ(*drive->text(kDiskUUIDKey), drive->uuid("DAVolumeUUID")->string());
  EXPECT_EQ(*drive->text("DAVolumeKind"), kind);
  EXPECT_EQ(*drive->text("DAMediaBSDName"), device.name());
  EXPECT_EQ(drive->boolValue(kDiskMountedPriorToApplicationInstance), false);

  unmount(first);
  observer.expect({"removed first"});
  EXPECT_FALSE(observer.unmounted(device.name())->contains(kDiskURLKey));

  mountVolume(device.node(), second, kind);
  observer.expect({"added second"});
  moveMount(second, third);
  observer.expect({"removed second", "added third"});
  EXPECT_EQ(observer.present(), Observer::Lines{"third"});
  EXPECT_FALSE(observer.isUnmounted(device.name()));

  unmount(third);
  observer.expect({"removed third"});
  const auto last = observer.unmounted(device.name());
  ASSERT_NE(last, nullptr);
  expectIdentityOf(device, last);
  EXPECT_EQ(last->doubleValue(kDiskAppearanceTimeKey), time) << "the medium never left";

  device.detach();
  EXPECT_TRUE(observer.isForgotten(device.name()));
  observer.expect({});
  EXPECT_TRUE(observer.present().empty());
}

TEST_F(VolumeStory, AnExt4VolumeIsAttachedMountedMovedUnmountedAndDetached) {
  Observer observer(space().scratch());
  tellTheLifeOf(newVolume("ext4", "Card One"), "ext4", space(), observer);
}

TEST_F(VolumeStory, AnXfsVolumeIsAttachedMountedMovedUnmountedAndDetached) {
  if (const auto missing = missingForImages("xfs"); !missing.empty()) GTEST_SKIP() << missing;
  Observer observer(space().scratch());
  tellTheLifeOf(newVolume("xfs", "XCARD"), "xfs", space(), observer);
}

TEST_F(VolumeStory, WhatIsMountedBeforeTheStartIsAnnouncedAsSuch) {
  const LoopDevice device = newVolume("ext4", "Early");
  mountVolume(device.node(), space().folder("early"), "ext4");
  Observer observer(space().scratch());
  observer.expect({"added early"});
  EXPECT_EQ(observer.drive("early")->boolValue(kDiskMountedPriorToApplicationInstance), true);
  observer.compareWithMountTable();
}

TEST_F(VolumeStory, EachMountedSubvolumeOfABtrfsIsADriveAndTheLastOneLeavesTheDisk) {
  if (const auto missing = missingForImages("btrfs"); !missing.empty()) GTEST_SKIP() << missing;
  const LoopDevice device = newVolume("btrfs", "Tree");
  Observer observer(space().scratch());
  const std::string whole = space().folder("whole"), part = space().folder("part");
  mountVolume(device.node(), whole, "btrfs");
  observer.expect({"added whole"});
  ASSERT_EQ(run({"btrfs", "subvolume", "create", whole + "/@home sweet"}).exitCode, 0);
  mountVolume(device.node(), part, "btrfs", "subvol=@home sweet");
  observer.expect({"added part"});
  expectIdentityOf(device, observer.drive("whole"));
  expectIdentityOf(device, observer.drive("part"));

  unmount(whole);
  observer.expect({"removed whole"});
  EXPECT_EQ(observer.present(), Observer::Lines{"part"});
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
    ASSERT_NE(observer.drive("fuse"), nullptr);
    EXPECT_EQ(*observer.drive("fuse")->text("DAVolumeKind"), "fuse.kmvhello");
    EXPECT_FALSE(observer.drive("fuse")->contains("DAMediaBSDName"));
    server.terminate();
    observer.expect({"removed fuse"});
  }
  {
    FuseServer server(point);
    observer.expect({"added fuse"});
    server.kill();
    observer.expect({});  // the dead mount is still mounted
    unmount(point);
    observer.expect({"removed fuse"});
  }
  {
    FuseServer server(point);
    observer.expect({"added fuse"});
    const int busy = open((point + "/hello").c_str(), O_RDONLY | O_CLOEXEC);
    ASSERT_GE(busy, 0);
    unmount(point, MNT_DETACH);
    observer.expect({"removed fuse"});
    close(busy);
    observer.expect({});
  }
  EXPECT_TRUE(observer.present().empty());
}

// --- Mounts that hide others, or are no drives ---

TEST_F(VolumeStory, AMountOverAMountHidesItUntilItGoes) {
  const LoopDevice below = newVolume("ext4", "Below"), above = newVolume("ext4", "Above");
  Observer observer(space().scratch());
  const std::string point = space().folder("point");
  mountVolume(below.node(), point, "ext4");
  observer.expect({"added point"});
  mountVolume(above.node(), point, "ext4");
  observer.expect({"removed point", "added point"});
  EXPECT_EQ(*observer.drive("point")->text(kDiskVolumeName), "Above");
  EXPECT_EQ(observer.hidingRule("point"), "covered");
  unmount(point);
  observer.expect({"removed point", "added point"});
  EXPECT_EQ(*observer.drive("point")->text(kDiskVolumeName), "Below");
  unmount(point);
  observer.expect({"removed point"});
}

TEST_F(VolumeStory, AMountOverAFolderAboveHidesADriveUntilItGoes) {
  const LoopDevice device = newVolume("ext4", "Deep");
  Observer observer(space().scratch());
  const std::string outer = space().folder("outer");
  mountVolume(device.node(), space().folder("outer/inner"), "ext4");
  observer.expect({"added outer/inner"});
  mountVolume("nothing", outer, "tmpfs");
  observer.expect({"removed outer/inner"});
  EXPECT_EQ(observer.hidingRule("outer/inner"), "shadowed");
  unmount(outer);
  observer.expect({"added outer/inner"});
  observer.compareWithMountTable();
}

TEST_F(VolumeStory, ALazilyUnmountedVolumeIsGoneAtOnce) {
  const LoopDevice device = newVolume("ext4", "Busy");
  Observer observer(space().scratch());
  const std::string point = space().folder("busy");
  mountVolume(device.node(), point, "ext4");
  observer.expect({"added busy"});
  const int file = open((point + "/file").c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600);
  ASSERT_GE(file, 0);
  unmount(point, MNT_DETACH);
  observer.expect({"removed busy"});
  EXPECT_EQ(write(file, "x", 1), 1) << "it lives on for those who have it open";
  close(file);
  observer.expect({});
  EXPECT_NE(observer.unmounted(device.name()), nullptr);
}

TEST_F(VolumeStory, OneVolumeMountedInSeveralPlacesIsOneDrive) {
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
  observer.expect({});
  EXPECT_EQ(observer.hidingRule("bound"), "bind");
  EXPECT_EQ(observer.hidingRule("part"), "folder");
  EXPECT_EQ(observer.hidingRule("again"), "bind");
  unmount(bound);
  observer.expect({});

  unmount(first);
  observer.expect({"removed first", "added again"});
  EXPECT_FALSE(observer.isUnmounted(device.name()));
  EXPECT_EQ(observer.hidingRule("part"), "folder");
  unmount(again);  // what is left of the volume stands for it
  observer.expect({"removed again", "added part"});
  unmount(part);
  observer.expect({"removed part"});
  EXPECT_NE(observer.unmounted(device.name()), nullptr);
}

TEST_F(VolumeStory, WhatIsNoDriveAndWhatChangesNoDriveIsNotAnnounced) {
  const LoopDevice device = newVolume("ext4", "Still");
  Observer observer(space().scratch());
  const std::string point = space().folder("still");
  mountVolume(device.node(), point, "ext4");
  observer.expect({"added still"});
  remountReadOnly(point);
  mountVolume("nothing", space().folder("memory"), "tmpfs");
  mountVolume("proc", space().folder("proc"), "proc");
  const std::string lower = space().folder("lower");
  mountVolume("overlay", space().folder("overlay"), "overlay",
              "lowerdir=" + lower + ":" + space().folder("lowest"));
  observer.expect({});
  EXPECT_EQ(observer.hidingRule("memory"), "pseudo");
  EXPECT_EQ(observer.hidingRule("overlay"), "pseudo");
  observer.compareWithMountTable();
}

}  // namespace
}  // namespace kmv::integration
