// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/simulated/Machine.h"
#include "platform/simulated/SessionRecorder.h"

// Events that are held, put into another order, lost, found again or damaged.
namespace kmv {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using testing::SimulatedPlatform;

class SimulatedDelivery : public ::testing::Test {
 protected:
  SimulatedDelivery() { recorder.start(); }
  Lines heard() {
    machine.runUntilIdle();
    return recorder.heard();
  }

  SimulatedPlatform& machine = SimulatedPlatform::install();
  SessionRecorder recorder;
};

TEST_F(SimulatedDelivery, HeldEventsComeWhenAndInTheOrderTheTestWants) {
  machine.holdEvents();
  for (const char* name : {"A", "B", "C", "D"}) machine.plugIn({.name = name});
  EXPECT_THAT(heard(), IsEmpty());
  machine.deliver(1);
  machine.deliverNext();
  EXPECT_THAT(heard(), ElementsAre("appeared B", "appeared A"));
  ASSERT_EQ(machine.pendingEvents().size(), 2U);
  EXPECT_EQ(machine.pendingEvents()[0].kind, testing::PendingEvent::Kind::appeared);
  EXPECT_DEATH(machine.deliver(2), "only 2 are held");
  machine.releaseEvents();
  machine.plugIn({.name = "E"});
  EXPECT_THAT(heard(), ElementsAre("appeared C", "appeared D", "appeared E"));
}

TEST_F(SimulatedDelivery, ARescanReportsWhatWasLostExactlyOnce) {
  const auto gone = machine.plugIn({.name = "GONE"});
  const auto renamed = machine.plugIn({.name = "OLD", .mountPoint = "/Volumes/OLD"});
  const auto moved = machine.plugIn({.name = "MOVED", .mountPoint = "/Volumes/MOVED"});
  const auto same = machine.plugIn({.name = "SAME", .mountPoint = "/Volumes/SAME"});
  heard();
  machine.loseNextEvent();
  machine.unplug(gone);
  EXPECT_THAT(heard(), IsEmpty());
  machine.holdEvents();
  machine.plugIn({.name = "NEW"});
  machine.lose(0);
  machine.rename(renamed, "NAME");
  machine.move(moved, "/mnt/moved");
  machine.unmount(same);
  machine.mount(same, "/Volumes/SAME");
  machine.rescan();
  machine.releaseEvents();
  EXPECT_THAT(heard(), ElementsAre("disappeared GONE", "disappeared MOVED at /Volumes/MOVED",
                                   "changed NAME at /Volumes/NAME (DAVolumeName DAVolumePath)",
                                   "appeared MOVED at /mnt/moved", "appeared NEW"));
  machine.rescan();
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(SimulatedDelivery, AfterLossesTheLibraryHearsWhatFitsWhatItKnows) {
  const auto card = machine.plugIn({.name = "CARD"});
  const auto disk = machine.plugIn({.name = "DISK", .mountPoint = "/Volumes/DISK"});
  heard();
  machine.holdEvents();
  const auto unknown = machine.plugIn({.name = "UNKNOWN"});
  const auto late = machine.plugIn({.name = "LATE"});
  machine.mount(card, "/Volumes/CARD");
  machine.move(disk, "/mnt/disk");
  for (int lost = 0; lost < 4; ++lost) machine.lose(0);
  machine.unplug(unknown);
  machine.mount(late, "/Volumes/LATE");
  machine.unplug(card);
  machine.releaseEvents();
  EXPECT_THAT(heard(), ElementsAre("disappeared DISK at /Volumes/DISK", "appeared DISK at /mnt/disk",
                                   "appeared LATE at /Volumes/LATE", "disappeared CARD"));
  machine.rescan();
  EXPECT_THAT(heard(), IsEmpty());
}

TEST_F(SimulatedDelivery, FaultsHitTheNextEventOnce) {
  machine.failNextDescription();
  machine.plugIn({.name = "MUTE"});
  machine.dropKeyFromNextDescription(key::kVolumeName);
  machine.plugIn({.name = "NAMELESS"});
  const auto brief = machine.plugIn({.name = "BRIEF"});
  EXPECT_THAT(heard(), ElementsAre("appeared without description", "appeared", "appeared BRIEF"));
  machine.vanishWhileDescribed(brief);
  machine.mount(brief, "/Volumes/BRIEF");
  EXPECT_THAT(heard(), ElementsAre("changed without description (DAVolumePath)", "disappeared BRIEF"));
  machine.rescan();
  EXPECT_THAT(heard(), ElementsAre("changed NAMELESS (DAVolumeName)", "appeared MUTE"))
      << "what could not be described was not told";
}

/// The order of ten disks' appearances and renames after a shuffle.
std::vector<std::uint64_t> shuffledOrder(std::uint64_t seed) {
  simulated::Machine machine(seed);
  const auto session = machine.makeDiskArbitrationSession();
  session->setQueue(machine.queues().makeSerialQueue("session"));
  session->registerCallbacks({}, nullptr);
  machine.holdEvents();
  for (int i = 0; i < 10; ++i) machine.rename(machine.plugIn({.name = "OLD"}), "NEW");
  machine.shufflePending();
  std::vector<std::uint64_t> order;
  std::set<testing::DiskId> seen;
  for (const auto& event : machine.pendingEvents()) {
    order.push_back(static_cast<std::uint64_t>(event.disk));
    const bool first = seen.insert(event.disk).second;
    EXPECT_EQ(event.kind == testing::PendingEvent::Kind::appeared, first)
        << "a disk appears before it changes";
  }
  return order;
}

TEST(SimulatedShuffle, RepeatsByItsSeedAndKeepsTheOrderOfEachDisk) {
  const auto order = shuffledOrder(1);
  EXPECT_EQ(order.size(), 20U);
  EXPECT_EQ(order, shuffledOrder(1));
  EXPECT_NE(order, shuffledOrder(2));
}

}  // namespace
}  // namespace kmv
