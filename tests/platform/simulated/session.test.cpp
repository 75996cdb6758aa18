// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/simulated/SessionRecorder.h"

// What a session of the simulated machine promises to whoever listens.
namespace kmv {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::SimulatedPlatform;

class SimulatedSession : public ::testing::Test {
 protected:
  Lines heard() {
    machine.runUntilIdle();
    return recorder.heard();
  }
  double appearanceTime(testing::DiskId disk) {
    return machine.description(disk).doubleValue(key::kAppearanceTime);
  }

  SimulatedPlatform& machine = SimulatedPlatform::install();
  SessionRecorder recorder;
};

TEST_F(SimulatedSession, ReportsWhatExistsNewestFirstThenWhatChangesAllOnItsQueue) {
  machine.plugIn({.name = "OLD", .mountPoint = "/Volumes/OLD"});
  const auto card = machine.plugIn({.name = "CARD"});
  recorder.start();
  machine.mount(card, "/Volumes/CARD");
  EXPECT_THAT(recorder.heard(), IsEmpty()) << "nothing is told before the queue runs";
  EXPECT_THAT(heard(), ElementsAre("appeared CARD", "appeared OLD at /Volumes/OLD",
                                   "changed CARD at /Volumes/CARD (DAVolumePath)"));
  EXPECT_THAT(recorder.onItsQueue(), Each(true));
}

TEST_F(SimulatedSession, ADiskWithADeviceOutlivesItsMountsAndKeepsItsAppearanceTime) {
  recorder.start();
  const auto card = machine.plugIn({.name = "CARD", .bsdName = "disk4s2"});
  const double appeared = appearanceTime(card);
  machine.mount(card, "/Volumes/CARD");
  machine.unmount(card);
  EXPECT_THAT(heard(), ElementsAre("appeared CARD", "changed CARD at /Volumes/CARD (DAVolumePath)",
                                   "changed CARD (DAVolumePath)"));
  EXPECT_EQ(recorder.last()->doubleValue(key::kAppearanceTime), appeared);
  EXPECT_EQ(recorder.last()->find(key::kMediaBSDUnit)->integerValue(), 4);
  machine.unplug(card);
  EXPECT_THAT(heard(), ElementsAre("disappeared CARD"));
  EXPECT_GT(appearanceTime(machine.plugIn({.name = "CARD", .bsdName = "disk4s2"})), appeared);
}

TEST_F(SimulatedSession, WhatIsPulledOutMountedAndWhatHasNoDeviceDisappearsWithItsPath) {
  recorder.start();
  const auto card = machine.plugIn({.name = "CARD", .mountPoint = "/Volumes/CARD"});
  const auto share = machine.plugInPathVolume({.mountPoint = "/Volumes/share", .name = "share"});
  EXPECT_FALSE(machine.description(share).contains(key::kAppearanceTime));
  machine.unplug(card);
  machine.unmount(share);
  EXPECT_THAT(heard(),
              ElementsAre("appeared CARD at /Volumes/CARD", "appeared share at /Volumes/share",
                          "disappeared CARD at /Volumes/CARD", "disappeared share at /Volumes/share"));
  EXPECT_FALSE(machine.exists(share));
}

TEST_F(SimulatedSession, ARenameMovesOnlyAVolumeThatIsMountedUnderItsName) {
  recorder.start();
  const auto card = machine.plugIn({.name = "CARD", .mountPoint = "/Volumes/CARD"});
  const auto other = machine.plugIn({.name = "OTHER", .mountPoint = "/mnt/other"});
  heard();
  machine.rename(card, "A/B");
  machine.rename(card, "A/B");
  machine.rename(other, "ANOTHER");
  EXPECT_THAT(heard(), ElementsAre("changed A/B at /Volumes/A:B (DAVolumeName DAVolumePath)",
                                   "changed ANOTHER at /mnt/other (DAVolumeName)"));
}

TEST_F(SimulatedSession, AMoveWithoutANewNameDisappearsAndAppears) {
  recorder.start();
  const auto card = machine.plugIn({.name = "CARD", .mountPoint = "/Volumes/CARD"});
  const double appeared = appearanceTime(card);
  machine.move(card, "/mnt/card");
  EXPECT_THAT(heard(), ElementsAre("appeared CARD at /Volumes/CARD", "disappeared CARD at /Volumes/CARD",
                                   "appeared CARD at /mnt/card"));
  EXPECT_EQ(recorder.last()->doubleValue(key::kAppearanceTime), appeared);
}

TEST_F(SimulatedSession, ChangedKeysReachBackToTheLastNewsOfAPath) {
  recorder.start();
  const auto card = machine.plugIn({.name = "CARD", .mountPoint = "/Volumes/CARD"});
  heard();
  machine.changeDescriptionKey(card, key::kVolumeUUID, std::nullopt);
  machine.changeDescriptionKey(card, key::kVolumeUUID, std::nullopt);
  EXPECT_THAT(heard(), ElementsAre("changed CARD at /Volumes/CARD (DAVolumeUUID)"));
  machine.unmount(card);
  machine.mount(card, "/Volumes/CARD");
  EXPECT_THAT(heard(), ElementsAre("changed CARD (DAVolumePath DAVolumeUUID)",
                                   "changed CARD at /Volumes/CARD (DAVolumePath)"));
}

TEST_F(SimulatedSession, EntriesCanBeSetTogetherAndAPathWithoutItsUsualEvents) {
  recorder.start();
  const auto odd =
      machine.plugIn({.name = "ODD", .mountPoint = "/Volumes/ODD", .description = {{"DAMediaSize", {}}}});
  EXPECT_FALSE(machine.description(odd).contains(key::kMediaSize));
  heard();
  machine.changeDescription(odd,
                            {{key::kVolumePath, URL::fileURLWithPath("/mnt", true)}, {key::kMediaSize, 5}});
  EXPECT_THAT(heard(), ElementsAre("changed ODD at /mnt (DAMediaSize DAVolumePath)"));
  EXPECT_EQ(Platform::current().volumes().mountedVolumeURLs().front().path(), "/mnt");
}

TEST_F(SimulatedSession, EventsCarryTheDescriptionOfTheirMoment) {
  recorder.start();
  const auto card = machine.plugIn({.name = "ONE"});
  machine.rename(card, "TWO");
  EXPECT_THAT(heard(), ElementsAre("appeared ONE", "changed TWO (DAVolumeName)"));
}

TEST_F(SimulatedSession, HearsNothingAfterItsEnd) {
  recorder.start();
  machine.plugIn({.name = "CARD"});
  recorder.close();
  machine.plugIn({.name = "LATER"});
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(SimulatedSession, WrongUseStopsTheProcess) {
  const auto unbound = Platform::current().makeDiskArbitrationSession();
  EXPECT_DEATH(unbound->registerCallbacks({}, nullptr), "registerCallbacks was called before setQueue");
  recorder.start();
  EXPECT_DEATH(recorder.start(), "registerCallbacks was called twice");
  EXPECT_DEATH(SimulatedPlatform::install(), "installed once");
  EXPECT_DEATH(machine.unmount(testing::DiskId{99}), "no disk 99");
}

}  // namespace
}  // namespace kmv
