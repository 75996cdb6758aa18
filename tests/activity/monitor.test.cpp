// SPDX-License-Identifier: MIT
#include "activity/Monitor.h"

namespace kmv::simulation {
namespace {

TEST_F(Monitor, FiveCyclesAreSilentAndEachLaterOneTellsWhatMoved) {
  plugIn("Card", "/bus/driver/media");
  registry.start();
  EXPECT_EQ(monitor().loadCycles(), 0u);
  for (std::uint64_t cycle = 0; cycle < 5; ++cycle) {
    count("/bus/driver/", 10 * cycle, cycle);
    machine.advance(cycle == 0 ? Seconds(0) : Seconds(1));
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
  machine.advance(std::chrono::milliseconds(2999));
  EXPECT_LE(monitor().loadCycles(), cycles + 1);
  const std::uint64_t now = monitor().loadCycles();
  machine.advance(Seconds(3));
  EXPECT_EQ(monitor().loadCycles(), now + 1);
  monitor().pause();  // ignored, like its likes
  monitor().requestUpdated();
  machine.advance(Seconds(3));
  EXPECT_EQ(monitor().loadCycles(), now + 2);
  monitor().setRefreshFrequency(0);
  machine.advance(Seconds(3));
  const std::uint64_t without = monitor().loadCycles();
  machine.advance(Seconds(2));
  EXPECT_EQ(monitor().loadCycles(), without + 2) << "as if it were 1";
  monitor().setRefreshFrequency(UINT64_MAX);
  machine.advance(Seconds(3));
  machine.advance(Seconds(1'000'000));
  EXPECT_EQ(monitor().loadCycles(), without + 3);
}

TEST_F(Monitor, VolumesOfADiskShareItsCountersAndThePathsBeginningsDecide) {
  plugIn("One", "/d/m1");
  plugIn("Two", "/D/M2");
  plugIn("Nested", "/x/inner/m");
  plugIn("Ten", "/d10/m");
  plugIn("Hidden", "/d/m3");
  plugIn("Nowhere", "");
  machine.hideFromUsers(plugIn("Boot", "/d/m4"));
  machine.setBlockStorageDriver("/d/m3", std::nullopt);
  count("/d", 0, 0);
  count("/x/", 100, 0);
  count("/x/inner/", 30, 0);
  startMeasuring();
  count("/d", 7, 0);
  count("/x/", 101, 0);
  nextCycle();
  EXPECT_EQ(news(), Lines{"Hidden read 7; Nested read 71; One read 7; Ten read 7; Two read 7; "})
      << "each of the nested drivers' samples is compared with the one stored just before it";
  machine.failNextDriverLookup();
  count("/d", 8, 0);
  nextCycle();
  EXPECT_EQ(news(), Lines{}) << "a look-up that fails is a cycle without figures";
  machine.removeBlockStorageDriver("/x/");
  nextCycle();
  EXPECT_EQ(news(), Lines{"Hidden read 1; One read 1; Ten read 1; Two read 1; "});
  plugIn("Late", "/x/inner/late");
  nextCycle();
  count("/x/inner/", 31, 0);
  nextCycle();
  EXPECT_EQ(news(), Lines{"Late read 1; Nested read 1; "});
}

TEST_F(Monitor, QuestionsAreAnsweredOnItsQueue) {
  plugIn("Card", "/d/m");
  plugIn("Share", "");
  count("/d/", 0, 0);
  startMeasuring();
  count("/d/", 5, 0);
  nextCycle();
  EXPECT_TRUE(monitor().ioServicesIsTrackingDrive(folder("/Volumes/Card")));
  EXPECT_FALSE(monitor().ioServicesIsTrackingDrive(file("/Volumes/Card")));
  KMVDriveActivityMonitor::URLs measured, untracked;
  int absent = 0;
  const auto keep = [&](const std::optional<KMVDriveActivityMonitor::URLs>& urls) {
    EXPECT_EQ(machine.currentQueueLabel(), "analysis queue");
    absent += !urls;
    if (urls) untracked = *urls;
  };
  monitor().driveMonitoredByIOServices([&](const auto& drives) { measured = drives; });
  const URL clip = file("/Volumes/Card/a.mov"), share = folder("/Volumes/Share"),
            nowhere = *URL::fromString("http://nowhere");
  monitor().enumerateFilePathsWhichCannotBeTrackedByIOServicesInList({share, clip, nowhere}, keep);
  EXPECT_TRUE(measured.empty()) << "later, on the queue";
  machine.runUntilIdle();
  EXPECT_EQ(measured, KMVDriveActivityMonitor::URLs{folder("/Volumes/Card")});
  EXPECT_EQ(untracked, (KMVDriveActivityMonitor::URLs{share, nowhere}));
  monitor().enumerateFilePathsWhichCannotBeTrackedByIOServicesInList({clip}, keep);
  machine.runUntilIdle();
  EXPECT_EQ(absent, 1) << "none is not an empty list";
}

TEST_F(Monitor, OneOfAHostsOwnOutlivesWhatItWasToldAndAsked) {
  const URL drive = folder("/Volumes/Card");
  const std::function<void(KMVDriveActivityMonitor&)> uses[] = {
      [&](auto& own) { own.appBytesWereReadOnDrive(1, drive, "copier"); },
      [&](auto& own) { own.appBytesWereReadOnFile(1, drive, "copier"); },
      [&](auto& own) { own.stopMonitoringAppDriveIOUpdatesFromSender("copier"); },
      [&](auto& own) { own.driveMonitoredByIOServices([](const auto&) {}); },
      [&](auto& own) {
        own.enumerateFilePathsWhichCannotBeTrackedByIOServicesInList({}, [](const auto&) {});
      }};
  for (const auto& use : uses) {
    auto own = std::make_unique<KMVDriveActivityMonitor>();
    use(*own);
    EXPECT_DEATH(own = nullptr, "destroyed while it measures");
    machine.runUntilIdle();
  }
  auto own = std::make_unique<KMVDriveActivityMonitor>();
  own->runDriveAnalysis();
  machine.runUntilIdle();
  EXPECT_DEATH(own = nullptr, "destroyed while it measures") << "the next cycle is due";
  own.release()->listenForApplicationDriveSpeedUpdates();  // for the life of the process, like the measuring
}

TEST_F(Monitor, BrowsesForEveryKindOfServiceFromTheStart) {
  EXPECT_TRUE(machine.serviceSearches().empty());
  monitor();
  EXPECT_EQ(machine.serviceSearches(), Lines{"_services._dns-sd._udp. in \"\" and among peers"});
  EXPECT_EQ(monitor().libtop_master_port(), 0u);
  EXPECT_NE(monitor().diskSession(), nullptr);
  EXPECT_EQ(monitor().driveAnalysisQueue()->label(), "analysis queue");
}

}  // namespace
}  // namespace kmv::simulation
