// SPDX-License-Identifier: MIT
// Events that are held, reordered, lost, found again or damaged, and the other faults.
#include "platform/simulated/Machine.h"
#include "platform/simulated/SimulatedMachine.h"
#include "support/Testing.h"

namespace kmv {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

class SimulatedDelivery : public SimulatedMachine {
 protected:
  SimulatedDelivery() { recorder.start(); }
};

TEST_F(SimulatedDelivery, HeldEventsComeWhenAndInTheOrderTheTestWants) {
  machine.holdEvents();
  for (const char* name : {"A", "B", "C", "D"}) plugIn(name);
  EXPECT_THAT(heard(), IsEmpty());
  machine.deliver(1);
  machine.deliverNext();
  EXPECT_THAT(heard(), ElementsAre("appeared B", "appeared A"));
  EXPECT_EQ(machine.pendingEvents().at(1).kind, simulation::PendingEvent::Kind::appeared);
  EXPECT_DEATH(machine.deliver(2), "only 2 are held");
  machine.releaseEvents();
  plugIn("E");
  EXPECT_THAT(heard(), ElementsAre("appeared C", "appeared D", "appeared E"));
}

TEST_F(SimulatedDelivery, ARescanReportsWhatWasLostExactlyOnce) {
  const auto gone = plugIn("GONE");
  const auto renamed = plugIn("OLD", "/Volumes/OLD");
  const auto moved = plugIn("MOVED", "/Volumes/MOVED");
  const auto same = plugIn("SAME", "/Volumes/SAME");
  heard();
  machine.loseNextEvent();
  machine.unplug(gone);
  EXPECT_THAT(heard(), IsEmpty());
  machine.holdEvents();
  plugIn("NEW");
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
  const auto card = plugIn("CARD");
  const auto disk = plugIn("DISK", "/Volumes/DISK");
  heard();
  machine.holdEvents();
  const auto unknown = plugIn("UNKNOWN");
  const auto late = plugIn("LATE");
  machine.mount(card, "/Volumes/CARD");
  machine.move(disk, "/mnt/disk");
  for (int lost = 0; lost < 4; ++lost) machine.lose(0);
  machine.unplug(unknown);
  machine.mount(late, "/Volumes/LATE");
  machine.unplug(card);
  machine.releaseEvents();
  EXPECT_THAT(heard(), ElementsAre("disappeared DISK at /Volumes/DISK", "appeared DISK at /mnt/disk",
                                   "appeared LATE at /Volumes/LATE", "disappeared CARD"));

  machine.holdEvents();
  machine.move(disk, "/mnt/lost");
  machine.move(disk, "/mnt/last");
  for (int lost = 0; lost < 2; ++lost) machine.lose(0);
  machine.deliverNext();
  EXPECT_THAT(heard(), IsEmpty()) << "it leaves a place that the library does not know";
}

TEST_F(SimulatedDelivery, EachFaultStrikesOnce) {
  machine.failNextDescription();
  plugIn("MUTE");
  machine.dropKeyFromNextDescription(key::kVolumeName);
  plugIn("NAMELESS");
  const auto brief = plugIn("BRIEF");
  EXPECT_THAT(heard(), ElementsAre("appeared without description", "appeared ?", "appeared BRIEF"));
  machine.vanishWhileDescribed(brief);
  machine.mount(brief, "/Volumes/BRIEF");
  EXPECT_THAT(heard(), ElementsAre("changed without description (DAVolumePath)", "disappeared BRIEF"));
  machine.rescan();
  EXPECT_THAT(heard(), ElementsAre("changed NAMELESS (DAVolumeName)", "appeared MUTE"))
      << "what could not be described was not told";

  plugIn("CARD", "/Volumes/CARD");
  machine.failNextMountedVolumeList();
  EXPECT_THAT(platform.volumes().mountedVolumeURLs(), IsEmpty());
  EXPECT_THAT(platform.volumes().mountedVolumeURLs(), SizeIs(1));
  machine.failNextDriverLookup();
  DriveStatistics statistics;
  const auto reader = platform.ioRegistry().makeStatisticsReader();
  for (const bool works : {false, true}) {
    reader->read(0, statistics);
    EXPECT_EQ(statistics.wereDriversFound, works);
  }
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
  std::set<simulation::DiskId> seen;
  for (const auto& event : machine.pendingEvents()) {
    order.push_back(static_cast<std::uint64_t>(event.disk));
    const bool first = seen.insert(event.disk).second;
    EXPECT_EQ(event.kind == simulation::PendingEvent::Kind::appeared, first)
        << "a disk appears before it changes";
  }
  return order;
}

TEST(SimulatedShuffle, RepeatsByItsSeedAndKeepsTheOrderOfEachDisk) {
  const auto order = shuffledOrder(1);
  EXPECT_THAT(order, SizeIs(20));
  EXPECT_EQ(order, shuffledOrder(1));
  EXPECT_NE(order, shuffledOrder(2));
}

}  // namespace
}  // namespace kmv
