// SPDX-License-Identifier: MIT
// What the verbs about disks and items do beyond what every backend does (tests/contract).
#include "platform/simulated/SimulatedMachine.h"

namespace kmv {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(SimulatedMachine, ReportsItsDisksNewestFirstAndEachWithItsPathWhenItIsPulledOut) {
  const auto old = plugIn("OLD", "/Volumes/OLD");
  const auto card = machine.plugIn({.name = "CARD", .bsdName = "disk4s2"});
  EXPECT_EQ(machine.description(card).find(key::kMediaBSDUnit)->integerValue(), 4);
  EXPECT_EQ(machine.description(card).boolValue(key::kMediaWhole), false);
  EXPECT_EQ(*machine.description(plugIn("NEXT")).text(key::kMediaBSDName), "disk5");
  const auto share = machine.plugInPathVolume({.mountPoint = "/mnt/share", .name = "share"});
  EXPECT_FALSE(machine.description(share).contains(key::kAppearanceTime));
  recorder.start();
  EXPECT_THAT(recorder.lines(), IsEmpty()) << "nothing is told before the queue runs";
  EXPECT_THAT(heard(), ElementsAre("appeared share at /mnt/share", "appeared NEXT", "appeared CARD",
                                   "appeared OLD at /Volumes/OLD"));
  machine.unplug(old);
  machine.unmount(share);
  EXPECT_THAT(heard(), ElementsAre("disappeared OLD at /Volumes/OLD", "disappeared share at /mnt/share"));
  EXPECT_FALSE(machine.exists(share));
}

TEST_F(SimulatedMachine, ARenameMovesOnlyAVolumeThatIsMountedUnderItsName) {
  recorder.start();
  const auto card = plugIn("CARD", "/Volumes/CARD");
  const auto other = plugIn("OTHER", "/mnt/other");
  heard();
  machine.rename(card, "A/B");
  machine.rename(card, "A/B");
  machine.move(card, "/Volumes/A:B");
  machine.rename(other, "ANOTHER");
  EXPECT_THAT(heard(), ElementsAre("changed A/B at /Volumes/A:B (DAVolumeName DAVolumePath)",
                                   "changed ANOTHER at /mnt/other (DAVolumeName)"));
}

TEST_F(SimulatedMachine, ChangedKeysReachBackToTheLastNewsOfAPath) {
  recorder.start();
  const auto card = plugIn("CARD", "/Volumes/CARD");
  heard();
  machine.changeDescriptionKey(card, key::kVolumeUUID, std::nullopt);
  machine.changeDescriptionKey(card, key::kVolumeUUID, std::nullopt);
  machine.unmount(card);
  machine.mount(card, "/Volumes/CARD");
  EXPECT_THAT(heard(), ElementsAre("changed CARD at /Volumes/CARD (DAVolumeUUID)",
                                   "changed CARD (DAVolumePath DAVolumeUUID)",
                                   "changed CARD at /Volumes/CARD (DAVolumePath)"));
}

TEST_F(SimulatedMachine, EntriesCanBeSetTogetherAndAPathWithoutItsUsualEvents) {
  recorder.start();
  const auto odd =
      machine.plugIn({.name = "ODD", .mountPoint = "/Volumes/ODD", .description = {{"DAMediaSize", {}}}});
  EXPECT_FALSE(machine.description(odd).contains(key::kMediaSize));
  heard();
  machine.changeDescription(odd,
                            {{key::kVolumePath, URL::fileURLWithPath("/mnt", true)}, {key::kMediaSize, 5}});
  EXPECT_THAT(heard(), ElementsAre("changed ODD at /mnt (DAMediaSize DAVolumePath)"));
  EXPECT_EQ(platform.volumes().mountedVolumeURLs().front().path(), "/mnt");
}

TEST_F(SimulatedMachine, ItemsAndTheirAttributesComeAndGoWithTheirVolume) {
  const auto exists = [&](const char* path) { return platform.files().itemKind(path) != ItemKind::none; };
  const auto card = plugIn("CARD", "/Volumes/CARD");
  machine.createItem("/Volumes/CARD/DCIM/clip.mov");
  EXPECT_FALSE(platform.files().readRegularFile("/Volumes/CARD/DCIM/clip.mov", 9).bytes);
  EXPECT_TRUE(machine.setAttribute("/Volumes/CARD/DCIM/clip.mov", "a", "1"));
  machine.rename(card, "REEL");
  EXPECT_TRUE(exists("/Volumes/REEL/DCIM/clip.mov"));
  EXPECT_FALSE(exists("/Volumes/CARD"));
  machine.unmount(card);
  EXPECT_FALSE(exists("/Volumes/REEL"));
  machine.mount(card, "/mnt");
  EXPECT_EQ(machine.attribute("/mnt/DCIM/clip.mov", "a"), "1");
  EXPECT_TRUE(machine.removeAttribute("/mnt/DCIM/clip.mov", "a"));
  EXPECT_FALSE(machine.removeAttribute("/mnt/DCIM/clip.mov", "a"));
  machine.removeItem("/mnt/DCIM");
  EXPECT_FALSE(exists("/mnt/DCIM/clip.mov"));
  EXPECT_TRUE(exists("/mnt"));
}

TEST_F(SimulatedMachine, WhoAsksASlowVolumeWaitsWhileOthersGoOnAndAHangingOneStopsTheProcess) {
  using namespace std::chrono_literals;
  const auto share = machine.plugInPathVolume({.mountPoint = "/mnt/share"});
  machine.createItem("/mnt/share/file");
  machine.createItem("/mnt/local");
  machine.setAnswerTime(share, 30s);
  const auto asking = makeSerialQueue("asking"), other = makeSerialQueue("other");
  std::string order;
  asking->async([&] {
    other->after(29s, [&] { order += "other "; });
    EXPECT_EQ(platform.files().itemKind("/mnt/share/file"), ItemKind::file);
    order += "answered ";
  });
  asking->async([&] { order += "later"; });
  machine.runUntilIdle();
  EXPECT_EQ(order, "other answered later");
  EXPECT_EQ(machine.now(), 30s);
  machine.setAnswerTime(share, simulation::SimulatedPlatform::kNever);
  EXPECT_EQ(platform.files().itemKind("/mnt/local"), ItemKind::file);
  EXPECT_EQ(platform.volumes().volumeURL(URL::fileURLWithPath("/mnt/share", true))->path(), "/mnt/share");
  asking->async([&] { platform.extendedAttributes().get("/mnt/share/file", "a"); });
  EXPECT_DEATH(machine.runUntilIdle(), "\"asking\" waits for .*/mnt/share/file.* hangs");
  machine.setAnswerTime(share, 0s);
  machine.runUntilIdle();
  EXPECT_EQ(machine.now(), 30s);
}

TEST_F(SimulatedMachine, ThePlatformsAliasesAreStripped) {
  plugIn("CARD", "/private/tmp/card");
  EXPECT_EQ(platform.files().realPath("/tmp/card/.."), "/private/tmp");
  const auto standardized = [](const char* path) {
    return URLByStandardizingPath(URL::fileURLWithPath(path, true)).path();
  };
  EXPECT_EQ(standardized("/private/tmp/card"), "/tmp/card");
  EXPECT_EQ(standardized("/private/gone"), "/private/gone");
}

TEST_F(SimulatedMachine, StatisticsHaveANewGenerationWhenPlacesChangeAndNotWhenCountersDo) {
  DriveStatistics statistics;
  const auto reader = platform.ioRegistry().makeStatisticsReader();
  const auto generation = [&] {
    reader->read(0, statistics);
    return statistics.generation;
  };
  const auto empty = generation();
  machine.setBlockStorageDriver("/driver", DriverCounters{});
  const auto withDriver = generation();
  EXPECT_NE(withDriver, empty);
  machine.setBlockStorageDriver("/driver", DriverCounters{1, 2, 3, 4});
  EXPECT_EQ(generation(), withDriver);
  EXPECT_EQ(statistics.drivers.at(0).counters->writeLatency, 4U);
  plugIn("CARD", "/Volumes/CARD");
  EXPECT_NE(generation(), withDriver);
}

TEST_F(SimulatedMachine, WrongUseStopsTheProcess) {
  EXPECT_DEATH(simulation::SimulatedPlatform::install(), "installed once");
  const simulation::DiskId unknown{99};
  EXPECT_DEATH(machine.unmount(unknown), "no disk 99");
  EXPECT_DEATH(machine.vanishWhileDescribed(unknown), "no disk 99");
  EXPECT_DEATH(machine.setMediaPath(unknown, "/disk"), "no disk 99");
  EXPECT_DEATH(machine.hideFromUsers(unknown), "no disk 99");
  EXPECT_DEATH(machine.setAnswerTime(unknown, {}), "no disk 99");
  const auto card = plugIn("CARD", "/Volumes/CARD");
  EXPECT_DEATH(machine.mount(card, "/mnt"), "mounted already");
  EXPECT_DEATH(machine.unmount(plugIn("OTHER")), "not mounted");
  EXPECT_DEATH(machine.plugInPathVolume({}), "needs a mount point");
  EXPECT_DEATH(machine.removeItem("/none"), "no item");
  EXPECT_DEATH(machine.createItem("relative"), "absolute path");
}

}  // namespace
}  // namespace kmv
