// SPDX-License-Identifier: MIT
// What hosts hear when devices and mounts come and go.
#include "platform/linux/session/DiskModel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/linux/ModelBench.h"

namespace kmv {
namespace {

using test::disk;
using test::ModelBench;
using test::mount;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr DeviceNumber kDisk{8, 0};
constexpr DeviceNumber kShared{0, 40};

class Stories : public ::testing::Test {
 protected:
  ModelBench bench;
};

TEST_F(Stories, AStickIsPluggedMountedUnmountedAndPulled) {
  const MountEntry a = mount(10, kDisk, "/a");
  bench.plug(disk(0, "sda"));
  EXPECT_THAT(bench.told(), ElementsAre("+ sda none #1"));
  bench.attach(a);
  EXPECT_THAT(bench.told(), ElementsAre("~ sda /a #1 DAVolumePath"));
  bench.plug(disk(0, "sda"));
  EXPECT_THAT(bench.told(), IsEmpty()) << "an event that changed nothing";
  bench.detach(a);
  EXPECT_THAT(bench.told(), ElementsAre("~ sda none #1 DAVolumePath"));
  bench.unplug(kDisk);
  EXPECT_THAT(bench.told(), ElementsAre("- sda none #1"));
}

TEST_F(Stories, AMountOverItselfIsTheOneThatCommandsAreToFind) {
  const MountEntry lower = mount(10, kDisk, "/a");
  MountEntry upper = mount(11, kDisk, "/a");
  upper.parent = lower.id;
  bench.plug(disk(0, "sda"));
  bench.attach(lower);
  bench.told();
  bench.attach(upper);
  EXPECT_THAT(bench.told(), IsEmpty()) << "nothing that a host could see";
  ASSERT_NE(bench.model.diskAt("/a"), nullptr);
  EXPECT_EQ(bench.model.diskAt("/a")->mount.id, upper.id);
  bench.detach(upper);
  bench.told();
  EXPECT_EQ(bench.model.diskAt("/a")->mount.id, lower.id);
}

TEST_F(Stories, AMountIsHeardOfBeforeItsDevice) {
  bench.present[kDisk] = disk(0, "sda");
  bench.attach(mount(10, kDisk, "/a"));
  EXPECT_THAT(bench.told(), ElementsAre("+ sda /a #1"));
  bench.plug(disk(0, "sda"));
  EXPECT_THAT(bench.told(), IsEmpty());
}

TEST_F(Stories, ADeviceThatCannotBeSeenIsDescribedByItsMount) {
  const MountEntry a = mount(10, {254, 0}, "/a");
  bench.attach(a);
  EXPECT_THAT(bench.told(), ElementsAre("+ ? /a #1"));
  bench.detach(a);
  EXPECT_THAT(bench.told(), ElementsAre("- ? /a #1"));
}

TEST_F(Stories, AStickIsPulledWhileMounted) {
  const MountEntry a = mount(10, kDisk, "/a");
  bench.plug(disk(0, "sda"));
  bench.attach(a);
  bench.told();
  bench.unplug(kDisk);
  EXPECT_THAT(bench.told(), ElementsAre("- sda /a #1"));
  bench.plug(disk(0, "sda", 2));
  EXPECT_THAT(bench.told(), ElementsAre("+ sda none #2")) << "the dead mount is none of the new stick";
  bench.detach(a);
  EXPECT_THAT(bench.told(), IsEmpty());
  bench.attach(mount(11, kDisk, "/a"));
  EXPECT_THAT(bench.told(), ElementsAre("~ sda /a #2 DAVolumePath"));
}

TEST_F(Stories, ADeadMountThatWasHiddenStaysDead) {
  const MountEntry a = mount(10, kDisk, "/a");
  MountEntry over = mount(11, kShared, "/a", "tmpfs");
  over.parent = 10;
  bench.plug(disk(0, "sda"));
  bench.attach(a);
  bench.attach(over);
  bench.unplug(kDisk);
  bench.told();
  bench.detach(over);
  EXPECT_THAT(bench.told(), IsEmpty());
}

TEST_F(Stories, AnotherMediumInTheSameDrive) {
  bench.plug(disk(0, "sr0", 1));
  bench.told();
  bench.plug(disk(0, "sr0", 2));
  EXPECT_THAT(bench.told(), ElementsAre("- sr0 none #1", "+ sr0 none #2"));
  bench.attach(mount(10, kDisk, "/cd"));
  bench.told();
  // The next medium is mounted before anything is heard of the exchange.
  bench.present[kDisk] = disk(0, "sr0", 3);
  bench.move(mount(10, kDisk, "/cd"), mount(12, kDisk, "/cd"));
  EXPECT_THAT(bench.told(), ElementsAre("- sr0 /cd #2", "+ sr0 /cd #3"));
}

TEST_F(Stories, ALateRemovalDoesNotTakeTheNewDevice) {
  BlockDevice device = disk(0, "sda");
  device.readAt = 100;
  bench.plug(device);
  bench.told();
  bench.model.deviceRemovedAt(kDisk, 99);
  EXPECT_THAT(bench.told(), IsEmpty());
  bench.model.deviceRemovedAt(kDisk, 101);
  EXPECT_THAT(bench.told(), ElementsAre("- sda none #1"));
}

TEST_F(Stories, PartitionsGoWithTheirDisk) {
  BlockDevice partition = disk(1, "sda1");
  partition.whole = false;
  partition.wholeNumber = kDisk;
  bench.plug(disk(0, "sda"));
  bench.plug(partition);
  bench.told();
  bench.unplug(kDisk);
  EXPECT_THAT(bench.told(), ElementsAre("- sda1 none #2", "- sda none #1"));
}

TEST_F(Stories, LostEventsAreMadeUpForOnce) {
  bench.plug(disk(0, "sda"));
  bench.plug(disk(1, "sdb"));
  bench.told();
  bench.model.devicesListed({disk(1, "sdb"), disk(2, "sdc")});
  EXPECT_THAT(bench.told(), ElementsAre("- sda none #1", "+ sdc none #3"));
}

TEST_F(Stories, AVolumeMoves) {
  bench.plug(disk(0, "sda"));
  bench.attach(mount(10, kDisk, "/a"));
  bench.told();
  bench.move(mount(10, kDisk, "/a"), mount(10, kDisk, "/b"));
  EXPECT_THAT(bench.told(), ElementsAre("- sda /a #1", "+ sda /b #1"));
}

TEST_F(Stories, ASecondMountTakesOverWhenTheFirstGoes) {
  const MountEntry first = mount(10, kDisk, "/a");
  bench.plug(disk(0, "sda"));
  bench.attach(first);
  bench.told();
  bench.attach(mount(11, kDisk, "/again"));
  EXPECT_THAT(bench.told(), IsEmpty());
  bench.detach(first);
  EXPECT_THAT(bench.told(), ElementsAre("- sda /a #1", "+ sda /again #1"));
}

TEST_F(Stories, AMountOnAMountHidesItForAWhile) {
  MountEntry over = mount(11, kShared, "/a", "fuse.x");
  over.parent = 10;
  bench.plug(disk(0, "sda"));
  bench.attach(mount(10, kDisk, "/a"));
  bench.told();
  bench.attach(over);
  EXPECT_THAT(bench.told(), ElementsAre("~ sda none #1 DAVolumePath", "+ ? /a #2"))
      << "the path is free before it is taken";
  bench.detach(over);
  EXPECT_THAT(bench.told(), ElementsAre("- ? /a #2", "~ sda /a #1 DAVolumePath"));
}

TEST_F(Stories, SubvolumesAreDisksOfTheirOwn) {
  const MountEntry top = mount(10, kShared, "/a", "btrfs");
  const MountEntry home = mount(11, kShared, "/home", "btrfs", "/home");
  BlockDevice device = disk(0, "sda");
  device.facts.type = "btrfs";
  bench.plug(device);
  bench.attach(top);
  bench.attach(home);
  EXPECT_THAT(bench.told(), ElementsAre("+ sda /a #1", "+ sda /home #2"));
  bench.detach(top);
  EXPECT_THAT(bench.told(), ElementsAre("- sda /a #1"));
  bench.detach(home);
  EXPECT_THAT(bench.told(), ElementsAre("~ sda none #2 DAVolumePath"));
}

TEST_F(Stories, AVolumeWithoutDeviceIsThereWhileMounted) {
  const MountEntry fuse = mount(10, kShared, "/f", "fuse.x");
  bench.attach(fuse);
  EXPECT_THAT(bench.told(), ElementsAre("+ ? /f #1"));
  // Its number and its mount's id are given to another one at the same place before anybody looks.
  bench.move(fuse, mount(10, kShared, "/f", "fuse.y"));
  EXPECT_THAT(bench.told(), ElementsAre("- ? /f #1", "+ ? /f #2"));
  bench.detach(mount(10, kShared, "/f", "fuse.y"));
  EXPECT_THAT(bench.told(), ElementsAre("- ? /f #2"));
}

TEST_F(Stories, ADeviceKeptBackIsADiskWhileMounted) {
  BlockDevice device = disk(0, "zram0");
  device.reportUnmounted = false;
  const MountEntry a = mount(10, kDisk, "/a");
  bench.plug(device);
  EXPECT_THAT(bench.told(), IsEmpty());
  bench.attach(a);
  EXPECT_THAT(bench.told(), ElementsAre("+ zram0 /a #1"));
  bench.detach(a);
  EXPECT_THAT(bench.told(), ElementsAre("- zram0 /a #1"));
}

TEST_F(Stories, AnUnmountListsWhatBecameKnownMeanwhile) {
  const MountEntry a = mount(10, kDisk, "/a");
  bench.plug(disk(0, "sda"));
  bench.attach(a);
  bench.told();
  BlockDevice known = disk(0, "sda");
  known.facts.id = "6A81-CDD2";
  bench.plug(known);
  EXPECT_THAT(bench.told(), ElementsAre("~ sda /a #1 DAVolumeUUID"));
  bench.detach(a);
  EXPECT_THAT(bench.told(), ElementsAre("~ sda none #1 DAVolumePath DAVolumeUUID"));
}

// With probes: a disk is announced with what its own probe says, or without it after a while.

class Probes : public ::testing::Test {
 protected:
  static std::optional<SignatureFacts> label(const std::string& text) {
    SignatureFacts facts = disk(0, "").facts;
    facts.label = text;
    return facts;
  }
  std::uint64_t ticketOfOnlyRequest() {
    const auto requests = bench.model.takeProbeRequests();
    EXPECT_THAT(requests, SizeIs(1));
    return requests.empty() ? 0 : requests.front().ticket;
  }
  ModelBench bench{/*probing=*/true};
};

TEST_F(Probes, HoldBackTheirOwnDiskOnly) {
  bench.plug(disk(0, "sda"));
  bench.attach(mount(10, kShared, "/f", "fuse.x"));
  EXPECT_THAT(bench.told(), ElementsAre("+ ? /f #1"));
  bench.model.probeFinished(kDisk, ticketOfOnlyRequest(), label("fresh"));
  EXPECT_THAT(bench.told(), ElementsAre("+ sda none #2"));
  EXPECT_FALSE(bench.model.nextDeadline());
}

TEST_F(Probes, ThatHangAreWaitedForASecond) {
  bench.plug(disk(0, "sda"));
  EXPECT_THAT(bench.told(), IsEmpty());
  const std::uint64_t ticket = ticketOfOnlyRequest();
  ASSERT_EQ(bench.model.nextDeadline(), bench.now + DiskModel::kProbePatience);
  bench.now += DiskModel::kProbePatience;
  EXPECT_THAT(bench.told(), ElementsAre("+ sda none #1"));
  EXPECT_FALSE(bench.model.nextDeadline());
  bench.model.probeFinished(kDisk, ticket, label("late"));
  EXPECT_THAT(bench.told(), ElementsAre("~ sda none #1 DAVolumeName"));
}

TEST_F(Probes, NeverHoldBackALoss) {
  const MountEntry a = mount(10, kDisk, "/a");
  bench.plug(disk(0, "sda"));
  bench.attach(a);
  bench.told();
  bench.model.probeFinished(kDisk, ticketOfOnlyRequest(), std::nullopt);
  EXPECT_THAT(bench.told(), ElementsAre("+ sda /a #1"));
  bench.plug(disk(0, "sda"));
  bench.detach(a);
  EXPECT_THAT(bench.told(), ElementsAre("~ sda none #1 DAVolumePath"));
}

TEST_F(Probes, AnswerForTheMediumThatTheyWereAskedAbout) {
  bench.plug(disk(0, "sda", 1));
  bench.told();
  const std::uint64_t ticket = ticketOfOnlyRequest();
  bench.plug(disk(0, "sda", 2));
  bench.model.probeFinished(kDisk, ticket, label("of the old one"));
  EXPECT_THAT(bench.told(), IsEmpty());
  bench.model.probeFinished(kDisk, ticketOfOnlyRequest(), std::nullopt);
  EXPECT_THAT(bench.told(), ElementsAre("+ sda none #1"));
}

}  // namespace
}  // namespace kmv
