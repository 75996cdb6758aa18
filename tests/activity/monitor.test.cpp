// SPDX-License-Identifier: MIT
#include "activity/Monitor.h"

namespace kmv::testing {
namespace {

TEST_F(Monitor, FiveCyclesAreSilentAndEachLaterOneTellsWhatMoved) {
  plugIn("Card", "/bus/driver/media");
  registry.start();
  EXPECT_EQ(monitor().loadCycles(), 0u);
  for (std::uint64_t cycle = 0; cycle < 5; ++cycle) {
    count("/bus/driver/", 10 * cycle, cycle);
    registry.machine.advance(cycle == 0 ? Seconds(0) : Seconds(1));
    EXPECT_EQ(monitor().loadCycles(), cycle + 1);
  }
  EXPECT_EQ(news(), Lines{});
  count("/bus/driver/", 41, 4);
  nextCycle();
  EXPECT_EQ(news(), Lines{"Card read 1; "});
  EXPECT_EQ(queue, "analysis queue");
  nextCycle();
  EXPECT_EQ(news(), Lines{}) << "nothing moved";
  count("/bus/driver/", 1, 5);
  nextCycle();
  EXPECT_EQ(news(), Lines{"Card read 18446744073709551576 wrote 1; "}) << "another disk in its place";
}

TEST_F(Monitor, ThePauseBeginsWhenTheWorkIsDone) {
  plugIn("Card", "/d/m");
  startMeasuring();
  monitor().setRefreshFrequency(3);
  nextCycle();  // the pause that had begun before
  const std::uint64_t cycles = monitor().loadCycles();
  registry.machine.advance(std::chrono::milliseconds(2999));
  EXPECT_LE(monitor().loadCycles(), cycles + 1);
  const std::uint64_t now = monitor().loadCycles();
  registry.machine.advance(Seconds(3));
  EXPECT_EQ(monitor().loadCycles(), now + 1);
  monitor().pause();  // ignored, like its likes
  monitor().requestUpdated();
  registry.machine.advance(Seconds(3));
  EXPECT_EQ(monitor().loadCycles(), now + 2);
  monitor().setRefreshFrequency(UINT64_MAX);
  registry.machine.advance(Seconds(3));
  registry.machine.advance(Seconds(1'000'000));
  EXPECT_EQ(monitor().loadCycles(), now + 3);
}

TEST_F(Monitor, VolumesOfADiskShareItsCountersAndThePathsBeginningsDecide) {
  plugIn("One", "/d/m1");
  plugIn("Two", "/D/M2");
  plugIn("Nested", "/x/inner/m");
  plugIn("Ten", "/d10/m");
  plugIn("Hidden", "/d/m3");
  plugIn("Nowhere", "");
  registry.machine.hideFromUsers(plugIn("Boot", "/d/m4"));
  registry.machine.setBlockStorageDriver("/d/m3", std::nullopt);
  count("/d", 0, 0);
  count("/x/", 100, 0);
  count("/x/inner/", 30, 0);
  startMeasuring();
  count("/d", 7, 0);
  count("/x/", 101, 0);
  nextCycle();
  EXPECT_EQ(news(), Lines{"Hidden read 7; Nested read 71; One read 7; Ten read 7; Two read 7; "})
      << "each of the nested drivers' samples is compared with the one stored just before it";
  registry.machine.failNextDriverLookup();
  count("/d", 8, 0);
  nextCycle();
  EXPECT_EQ(news(), Lines{}) << "a look-up that fails is a cycle without figures";
  registry.machine.removeBlockStorageDriver("/x/");
  nextCycle();
  EXPECT_EQ(news(), Lines{"Hidden read 1; One read 1; Ten read 1; Two read 1; "});
}

TEST_F(Monitor, QuestionsAreAnsweredOnItsQueue) {
  plugIn("Card", "/d/m");
  plugIn("Share", "");
  count("/d/", 0, 0);
  startMeasuring();
  count("/d/", 5, 0);
  nextCycle();
  EXPECT_TRUE(monitor().ioServicesIsTrackingDrive(url("/Volumes/Card")));
  EXPECT_FALSE(monitor().ioServicesIsTrackingDrive(URL::fileURLWithPath("/Volumes/Card", false)));
  KMVDriveActivityMonitor::URLs measured, untracked;
  int absent = 0;
  const auto keep = [&](const std::optional<KMVDriveActivityMonitor::URLs>& urls) {
    EXPECT_EQ(registry.machine.currentQueueLabel(), "analysis queue");
    absent += !urls;
    if (urls) untracked = *urls;
  };
  monitor().driveMonitoredByIOServices([&](const auto& drives) { measured = drives; });
  const URL file = URL::fileURLWithPath("/Volumes/Card/a.mov", false), share = url("/Volumes/Share"),
            nowhere = *URL::fromString("http://nowhere");
  monitor().enumerateFilePathsWhichCannotBeTrackedByIOServicesInList({share, file, nowhere}, keep);
  EXPECT_TRUE(measured.empty()) << "later, on the queue";
  registry.machine.runUntilIdle();
  EXPECT_EQ(measured, KMVDriveActivityMonitor::URLs{url("/Volumes/Card")});
  EXPECT_EQ(untracked, (KMVDriveActivityMonitor::URLs{share, nowhere}));
  monitor().enumerateFilePathsWhichCannotBeTrackedByIOServicesInList({file}, keep);
  registry.machine.runUntilIdle();
  EXPECT_EQ(absent, 1) << "none is not an empty list";
}

TEST_F(Monitor, BrowsesForEveryKindOfServiceFromTheStart) {
  EXPECT_TRUE(registry.machine.serviceSearches().empty());
  monitor();
  EXPECT_EQ(registry.machine.serviceSearches(), Lines{"_services._dns-sd._udp. in \"\" and among peers"});
  EXPECT_EQ(monitor().libtop_master_port(), 0u);
  EXPECT_NE(monitor().diskSession(), nullptr);
  EXPECT_EQ(monitor().driveAnalysisQueue()->label(), "analysis queue");
}

TEST_F(Monitor, MemoryStaysFlatOverAHundredThousandCyclesButForTheBaselines) {
  plugIn("Card", "/d/m");
  startMeasuring();
  for (std::uint64_t hour = 0; hour < 28; ++hour) {
    const DiskId stick = plugIn("Stick", "/d/s");
    count("/d/", hour, hour);
    registry.machine.advance(Seconds(3600));
    registry.machine.unplug(stick);
  }
  EXPECT_GT(monitor().loadCycles(), 100'000u);
  EXPECT_EQ(monitor().ioServiceTracker()->cachedIOStatistics()->count(), 2u);
  EXPECT_EQ(monitor().ioServiceTracker()->activityLookup()->count(), 0u);
}

}  // namespace
}  // namespace kmv::testing
