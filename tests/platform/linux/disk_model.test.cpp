// SPDX-License-Identifier: MIT
// What hosts hear when devices and mounts come and go.
#include "platform/linux/session/DiskModel.h"

#include "platform/linux/ModelBench.h"
#include "support/Testing.h"

namespace kmv {
namespace {

using test::disk;
using test::ModelBench;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

constexpr DeviceNumber kDisk{8, 0};

/// Steps, and what is told after each: "+" appeared, "-" disappeared, "~" changed.
struct Step {
  const char* does;
  std::vector<std::string> tells;
};
struct Story {
  const char* name;
  std::vector<Step> steps;
};

const Story kStories[] = {
    {"a mount is heard of before its device",
     {{"insert sda; mount 10 sda /a", {"+ sda /a #1"}}, {"plug sda", {}}}},
    {"a device that cannot be seen is described by its mount",
     {{"mount 10 sdb /a", {"+ ? /a #1"}}, {"umount 10", {"- ? /a #1"}}}},
    {"a stick is pulled while mounted, and the dead mount is none of the new stick",
     {{"plug sda; mount 10 sda /a", {"+ sda /a #1"}},
      {"unplug sda", {"- sda /a #1"}},
      {"plug sda 2", {"+ sda none #2"}},
      {"umount 10", {}},
      {"mount 11 sda /a", {"~ sda /a #2 DAVolumePath"}}}},
    {"a dead mount that was hidden stays dead",
     {{"plug sda; mount 10 sda /a; mount 11 tmpfs /a 10; unplug sda", {}}, {"umount 11", {}}}},
    {"another medium in the same drive, the second mounted before anything is heard of it",
     {{"plug sda 1", {"+ sda none #1"}},
      {"plug sda 2", {"- sda none #1", "+ sda none #2"}},
      {"mount 10 sda /cd", {"~ sda /cd #2 DAVolumePath"}},
      {"insert sda 3; replace 10 12 sda /cd", {"- sda /cd #2", "+ sda /cd #3"}}}},
    {"a second mount takes over when the first goes",
     {{"plug sda; mount 10 sda /a", {"+ sda /a #1"}},
      {"mount 11 sda /again", {}},
      {"umount 10", {"- sda /a #1", "+ sda /again #1"}}}},
    {"subvolumes are disks of their own",
     {{"plug sda; mount 10 btrfs:/ /a; mount 11 btrfs:/home /home", {"+ sda /a #1", "+ sda /home #2"}},
      {"umount 10", {"- sda /a #1"}},
      {"umount 11", {"~ sda none #2 DAVolumeKind DAVolumePath DAVolumeType"}}}},
    {"a volume without device is there while mounted; its number and id pass to another one",
     {{"mount 10 fuse.x /f", {"+ ? /f #1"}},
      {"replace 10 10 fuse.y /f", {"- ? /f #1", "+ ? /f #2"}},
      {"replace 10 10 fuse.y=other /f", {"- ? /f #2", "+ ? /f #3"}},
      {"umount 10", {"- ? /f #3"}}}},
};

TEST(Stories, AreToldStepByStep) {
  for (const Story& story : kStories) {
    SCOPED_TRACE(story.name);
    ModelBench bench;
    for (const Step& step : story.steps) {
      bench.does(step.does);
      EXPECT_EQ(bench.told(), step.tells) << step.does;
    }
  }
}

class Model : public ::testing::Test {
 protected:
  ModelBench bench;
};

TEST_F(Model, CommandsFindTheUppermostMountOfAVolume) {
  bench.does("plug sda; mount 10 sda /a");
  bench.told();
  bench.does("mount 11 sda /a 10");
  EXPECT_THAT(bench.told(), IsEmpty()) << "nothing that a host could see";
  ASSERT_NE(bench.model.diskAt("/a"), nullptr);
  EXPECT_EQ(bench.model.diskAt("/a")->mount.id, 11u);
  bench.does("umount 11");
  bench.told();
  EXPECT_EQ(bench.model.diskAt("/a")->mount.id, 10u);
  bench.does("umount 10");
  bench.told();
  EXPECT_EQ(bench.model.diskAt("/a"), nullptr);
}

TEST_F(Model, ALateRemovalDoesNotTakeTheNewDevice) {
  BlockDevice device = disk(0, "sda");
  device.readAt = 100;
  bench.plug(device);
  bench.told();
  bench.model.deviceRemovedAt(kDisk, 99);
  EXPECT_THAT(bench.told(), IsEmpty());
  bench.model.deviceRemovedAt(kDisk, 101);
  EXPECT_THAT(bench.told(), ElementsAre("- sda none #1"));
}

TEST_F(Model, PartitionsGoWithTheirDiskAndLostEventsAreMadeUpForOnce) {
  BlockDevice partition = disk(1, "sda1");
  partition.whole = false;
  partition.wholeNumber = kDisk;
  bench.plug(disk(0, "sda"));
  bench.plug(partition);
  bench.plug(disk(2, "sdc"));
  bench.told();
  bench.model.devicesListed({disk(2, "sdc"), disk(3, "sdd")});
  EXPECT_THAT(bench.told(), ElementsAre("- sda1 none #2", "- sda none #1", "+ sdd none #4"));
}

TEST_F(Model, ADeviceKeptBackIsADiskWhileMounted) {
  BlockDevice device = disk(0, "sda");
  device.reportUnmounted = false;
  bench.plug(device);
  EXPECT_THAT(bench.told(), IsEmpty());
  bench.does("mount 10 sda /a");
  EXPECT_THAT(bench.told(), ElementsAre("+ sda /a #1"));
  bench.does("umount 10");
  EXPECT_THAT(bench.told(), ElementsAre("- sda /a #1"));
}

TEST_F(Model, AVolumeWhoseDeviceCannotBeReadIsToldOnceItCan) {
  bench.does("plug sda; plug sdb; mount 10 sdb /a");
  bench.told();
  bench.isUnreadable = true;
  bench.does("mount 11 btrfs:/ /b; mount 12 sdc /c; umount 12; umount 10; mount 13 sdb /d");
  EXPECT_THAT(bench.told(), ElementsAre("~ sdb none #2 DAVolumePath")) << "a loss needs no look";
  bench.model.readAgain();
  EXPECT_THAT(bench.told(), IsEmpty());
  EXPECT_TRUE(bench.model.hasUnread());
  bench.isUnreadable = false;
  bench.model.readAgain();
  EXPECT_THAT(bench.told(),
              ElementsAre("~ sda /b #1 DAVolumeKind DAVolumePath DAVolumeType", "~ sdb /d #2 DAVolumePath"));
  EXPECT_FALSE(bench.model.hasUnread());
}

TEST_F(Model, ADiskThatIsFormattedWhileAttachedIsListedBeforeItIsMounted) {
  BlockDevice blank = disk(0, "sda");
  blank.facts = {};
  bench.plug(blank);
  bench.told();
  bench.does("plug sda");
  EXPECT_THAT(bench.told(), ElementsAre("- sda none #1", "+ sda none #1"));
  bench.plug(blank);
  bench.told();
  bench.does("plug sda; mount 10 sda /a");
  EXPECT_THAT(bench.told(), ElementsAre("- sda none #1", "+ sda /a #1")) << "both heard of at once";
}

TEST_F(Model, AnUnmountListsWhatBecameKnownMeanwhile) {
  bench.does("plug sda; mount 10 sda /a");
  bench.told();
  BlockDevice known = disk(0, "sda");
  known.facts.id = "6A81-CDD2";
  bench.plug(known);
  EXPECT_THAT(bench.told(), ElementsAre("~ sda /a #1 DAVolumeUUID KMVVolumeIdentifier"));
  bench.does("umount 10");
  EXPECT_THAT(bench.told(), ElementsAre("~ sda none #1 DAVolumePath DAVolumeUUID KMVVolumeIdentifier"));
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

TEST_F(Probes, HoldBackTheirOwnDiskOnlyAndNeverALoss) {
  bench.does("plug sda; mount 10 fuse.x /f");
  EXPECT_THAT(bench.told(), ElementsAre("+ ? /f #1"));
  EXPECT_FALSE(bench.model.isAwaitedAt("/a"));
  bench.does("mount 11 sda /a");
  bench.told();
  EXPECT_TRUE(bench.model.isAwaitedAt("/a"));
  bench.model.probeFinished(kDisk, ticketOfOnlyRequest(), label("fresh"));
  EXPECT_THAT(bench.told(), ElementsAre("+ sda /a #2"));
  EXPECT_FALSE(bench.model.isAwaitedAt("/a"));
  EXPECT_FALSE(bench.model.nextDeadline());
  bench.does("plug sda; umount 11");
  EXPECT_THAT(bench.told(), ElementsAre("~ sda none #2 DAVolumePath"));
}

TEST_F(Probes, ThatHangAreWaitedForASecond) {
  bench.does("plug sda");
  EXPECT_THAT(bench.told(), IsEmpty());
  const std::uint64_t ticket = ticketOfOnlyRequest();
  ASSERT_EQ(bench.model.nextDeadline(), bench.now + ProbeSchedule::kPatience);
  bench.now += ProbeSchedule::kPatience;
  EXPECT_THAT(bench.told(), ElementsAre("+ sda none #1"));
  EXPECT_FALSE(bench.model.nextDeadline());
  bench.model.probeFinished(kDisk, ticket, label("late"));
  EXPECT_THAT(bench.told(), ElementsAre("- sda none #1", "+ sda none #1"));
}

TEST_F(Probes, ThatAnswerLateBringAMountedDriveOnceMore) {
  bench.does("plug sda; mount 10 sda /a");
  bench.told();
  const std::uint64_t ticket = ticketOfOnlyRequest();
  bench.now += ProbeSchedule::kPatience;
  EXPECT_THAT(bench.told(), ElementsAre("+ sda /a #1"));
  bench.model.probeFinished(kDisk, ticket, label("late"));
  EXPECT_THAT(bench.told(), ElementsAre("- sda /a #1", "+ sda /a #1"));
  bench.does("plug sda");
  bench.told();
  bench.model.probeFinished(kDisk, ticketOfOnlyRequest(), label("renamed"));
  EXPECT_THAT(bench.told(), ElementsAre("~ sda /a #1 DAVolumeName")) << "it had its identity";
}

TEST_F(Probes, ThatAreDeferredAreAskedForAgainLessAndLessOften) {
  bench.does("plug sda");
  bench.told();
  for (const int milliseconds : {100, 200, 400, 800, 1600, 3200, 5000, 5000}) {
    const std::chrono::milliseconds wait(milliseconds);
    bench.model.probeDeferred(kDisk, ticketOfOnlyRequest(), bench.now);
    bench.now += wait - std::chrono::milliseconds(1);
    bench.told();
    EXPECT_THAT(bench.model.takeProbeRequests(), IsEmpty());
    bench.now += std::chrono::milliseconds(1);
    bench.told();
  }
  bench.model.probeFinished(kDisk, ticketOfOnlyRequest(), label("unlocked"));
  EXPECT_THAT(bench.told(), ElementsAre("- sda none #1", "+ sda none #1"));
  EXPECT_FALSE(bench.model.nextDeadline());
}

TEST_F(Probes, AreNotMadeOfWhatUdevdHasJustDescribed) {
  bench.model.deviceSeen(disk(0, "sda"), /*isRecordCurrent=*/true);
  EXPECT_THAT(bench.told(), ElementsAre("+ sda none #1"));
  EXPECT_THAT(bench.model.takeProbeRequests(), IsEmpty());
  BlockDevice unknown = disk(1, "sdb");
  unknown.inDatabase = false;
  bench.model.devicesListed({disk(0, "sda"), unknown}, /*isRecordCurrent=*/true);
  bench.told();
  const auto requests = bench.model.takeProbeRequests();
  ASSERT_THAT(requests, SizeIs(1));
  EXPECT_EQ(requests.front().device.name, "sdb");
}

TEST_F(Probes, AnswerForTheMediumThatTheyWereAskedAbout) {
  bench.does("plug sda 1");
  bench.told();
  const std::uint64_t ticket = ticketOfOnlyRequest();
  bench.does("plug sda 2");
  bench.model.probeFinished(kDisk, ticket, label("of the old one"));
  EXPECT_THAT(bench.told(), IsEmpty());
  bench.model.probeFinished(kDisk, ticketOfOnlyRequest(), std::nullopt);
  EXPECT_THAT(bench.told(), ElementsAre("+ sda none #1"));
}

}  // namespace
}  // namespace kmv
