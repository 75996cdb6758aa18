// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

/// The shared registry and monitor on a simulated machine, and what the monitor announces.
class Monitor : public RegistryTest {
 protected:
  using Seconds = std::chrono::seconds;

  Monitor() {
    registration_ = NotificationCenter::defaultCenter().addObserver(
        kDiskArbiterDriveActivityDidUpdateNotification, [this](const Notification& notification) {
          EXPECT_EQ(notification.object.identity(), static_cast<Object*>(&monitor()));
          std::string line;
          for (const auto& [url, activity] : driveActivities(notification)) {
            line += url.path().substr(url.path().rfind('/') + 1);
            if (const auto read = activity->readDelta()) line += " read " + std::to_string(read->byteDelta());
            if (const auto written = activity->writeDelta())
              line += " wrote " + std::to_string(written->byteDelta());
            line += "; ";
          }
          news_.push_back(line);
          queue = machine.currentQueueLabel();
        });
  }

  static KMVDriveActivityMonitor& monitor() { return KMVDriveActivityMonitor::defaultMonitor(); }

  /// A drive at /Volumes/`name` whose medium stands at `media`.
  DiskId plugIn(const std::string& name, const std::string& media) {
    const DiskId disk = RegistryTest::plugIn(name, "/Volumes/" + name);
    if (!media.empty()) machine.setMediaPath(disk, media);
    return disk;
  }
  void count(const std::string& driver, std::uint64_t read, std::uint64_t written) {
    machine.setBlockStorageDriver(driver, DriverCounters{read, written});
  }
  /// Starts everything and lets the silent cycles pass.
  void startMeasuring() {
    registry.start();
    monitor();
    machine.advance(Seconds(5));
    news();
  }
  void nextCycle() { machine.advance(Seconds(monitor().refreshFrequency())); }
  Lines news() { return std::exchange(news_, {}); }

  std::string queue;

 private:
  Lines news_;
  NotificationCenter::Registration registration_;
};

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

class Reports : public Monitor {
 protected:
  Reports() {
    plugIn("Share", "");
    plugIn("Card", "/d/m");
    count("/d/", 0, 0);
    startMeasuring();
  }
  const URL share = folder("/Volumes/Share"), card = folder("/Volumes/Card");
};

TEST_F(Reports, TheFirstOneIsWhereCountingBeginsAndLaterOnesAreToldBySide) {
  monitor().appBytesWereReadOnDrive(100, share, "copier");
  nextCycle();
  EXPECT_EQ(news(), Lines{});
  monitor().appBytesWereWrittenOnFile(50, file("/Volumes/Share/a/b.mov"), "copier");
  nextCycle();
  EXPECT_EQ(news(), Lines{"Share wrote 50; "});
  monitor().appBytesWereReadOnDrive(1, *URL::fromString("file:///Volumes/./Share/"), "copier");
  monitor().appBytesWereReadOnFile(2, share, "copier");
  nextCycle();
  EXPECT_EQ(news(), Lines{"Share read 3; "});
  monitor().appBytesWereReadOnFile(9, *URL::fromString("http://nowhere"), "copier");
  nextCycle();
  EXPECT_EQ(news(), Lines{});
}

TEST_F(Reports, OfADriveThatWasMeasuredAsActiveAreDropped) {
  count("/d/", 5, 0);
  nextCycle();
  EXPECT_EQ(news(), Lines{"Card read 5; "});
  monitor().appBytesWereReadOnDrive(100, card, "copier");
  nextCycle();
  monitor().appBytesWereReadOnDrive(7, card, "copier");  // measured, but idle in the latest cycle
  nextCycle();
  monitor().appBytesWereReadOnDrive(8, card, "copier");
  nextCycle();
  EXPECT_EQ(news(), Lines{"Card read 8; "}) << "the hundred was never counted";
  monitor().appBytesWereReadOnDrive(9, card, "copier");
  count("/d/", 6, 0);
  nextCycle();
  EXPECT_EQ(news(), Lines{"Card read 1; "}) << "what was measured counts";
}

TEST_F(Reports, OfSeveralSendersTheLastByNameCountsAndAnotherOneBeginsAnew) {
  monitor().appBytesWereReadOnDrive(100, share, "b");
  monitor().appBytesWereReadOnDrive(1000, share, "a");
  nextCycle();
  monitor().appBytesWereReadOnDrive(1, share, "b");
  monitor().appBytesWereReadOnDrive(10, share, "a");
  nextCycle();
  EXPECT_EQ(news(), Lines{"Share read 1; "});
  EXPECT_EQ(monitor().appTracker()->trackingId(), "b");
  monitor().stopMonitoringAppDriveIOUpdatesFromSender("a");
  machine.runUntilIdle();
  EXPECT_EQ(monitor().appTracker()->trackingId(), "b");
  monitor().appBytesWereReadOnDrive(10, share, "a");
  monitor().stopMonitoringAppDriveIOUpdatesFromSender("b");
  machine.runUntilIdle();
  EXPECT_EQ(monitor().appTracker()->trackingId(), std::nullopt);
  nextCycle();
  EXPECT_EQ(news(), Lines{}) << "another sender";
  monitor().appBytesWereReadOnDrive(3, share, "b");
  nextCycle();
  EXPECT_EQ(monitor().appIOLookup()->find("b").value()->find(share).value()->bytesRead(), 3u);
  EXPECT_EQ(news(), Lines{}) << "another sender than in the cycle before";
  nextCycle();
  EXPECT_EQ(news(), Lines{});
}

TEST_F(Reports, OfTheTrackingServiceAreTakenAndOthersLogged) {
  struct Other : IOActivityUpdate {};
  Lines lines;
  OrvaneLog::defaultLog().setSink([&](OrvaneLog::Level, std::string_view line) { lines.emplace_back(line); });
  monitor().listenForApplicationDriveSpeedUpdates();
  monitor().listenForApplicationDriveSpeedUpdates();  // counts nothing twice
  auto& service = ApplicationIOTrackingDelegate::shared();
  service.addUpdateHandler(nullptr);
  service.publish(nullptr);
  service.publish(std::make_shared<URLActivityUpdate>(share, 5, 6));
  nextCycle();
  service.publish(std::make_shared<URLActivityUpdate>(share, 7, -1));
  service.publish(std::make_shared<URLActivityUpdate>(share, 0, 8));
  service.publish(std::make_shared<Other>());
  nextCycle();
  EXPECT_EQ(news(), Lines{"Share read 7 wrote 8; "});
  EXPECT_EQ(lines, Lines{"Could not get drive speed info form update. Unexpected Update type."});
  EXPECT_TRUE(monitor().appIOLookup()->contains("KMVDAM_notification"));
  OrvaneLog::defaultLog().setSink(nullptr);
}

TEST_F(Reports, AMeterReportsWhatACopyLoopMoves) {
  {
    IOMeter meter(file("/Volumes/Share/new.mov"), "copier");
    for (int block = 0; block < 10; ++block) meter.wrote(1000);
    meter.report();
    nextCycle();
    meter.wrote(5);
    meter.read(6);
  }
  { IOMeter(*URL::fromString("http://nowhere"), "copier").read(1); }
  nextCycle();
  EXPECT_EQ(news(), Lines{"Share read 6 wrote 5; "});
}

TEST_F(Reports, ThatAreNullCountAsNone) {
  const auto totals = std::make_shared<KMVDriveActivityMonitor::Totals>();
  totals->set(card, nullptr);
  monitor().appIOLookup()->set("a", nullptr);
  monitor().appIOLookup()->set("b", totals);
  for (const char* sender : {"a", "b"}) {
    nextCycle();
    monitor().appBytesWereReadOnDrive(1, share, sender);
    monitor().appBytesWereReadOnDrive(1, card, sender);
  }
  nextCycle();
  EXPECT_EQ(totals->find(card).value()->bytesRead(), 1u);
}

TEST_F(RegistryTest, AMeterThatCountedNothingStartsNothing) {
  { IOMeter(file("/Volumes/Share/new.mov"), "copier").report(); }
  EXPECT_TRUE(machine.serviceSearches().empty()) << "the monitor begins with a search";
}

TEST_F(Reports, AMeterReportsATenthOfASecondAfterItsFirstCountAndItsLastReport) {
  const auto reported = [&](std::uint64_t bytes) {
    machine.runUntilIdle();
    const auto total = monitor().appIOLookup()->find("copier");
    return total ? total.value()->find(share).value()->bytesWritten() == bytes : bytes == 0;
  };
  IOMeter meter(file("/Volumes/Share/new.mov"), "copier");
  machine.advance(Seconds(1));
  meter.wrote(4);
  machine.advance(std::chrono::milliseconds(99));
  meter.wrote(1);
  EXPECT_TRUE(reported(0));
  machine.advance(std::chrono::milliseconds(1));
  meter.wrote(1);
  EXPECT_TRUE(reported(6));
  machine.advance(std::chrono::milliseconds(99));
  meter.wrote(1);
  EXPECT_TRUE(reported(6)) << "the pause begins anew";
}

TEST_F(Monitor, ALoadIsOfTheTimeBetweenTwoReadings) {
  plugIn("Card", "/bus/card/media");
  machine.setBlockStorageDriver("/bus/card/", DriverCounters{100, 100, 0, 0, 5, 5, 0});
  LoadMeter meter;
  machine.setBlockStorageDriver("/bus/card/", DriverCounters{300, 50, 8'000'000, 0, 9, 5, 500'000'000});
  machine.advance(Seconds(2));
  const auto loads = meter.read();
  const auto& card = loads.drives.at(URL::fileURLWithPath("/Volumes/Card", true));
  for (const DriveLoad& load : {card, loads.allDisks}) {
    EXPECT_EQ(load.seconds, 2);
    EXPECT_EQ(load.bytesRead, 200u);
    EXPECT_EQ(load.bytesWritten, 0u) << "a counter that went back tells nothing";
    EXPECT_EQ(load.reads, 4u);
    EXPECT_EQ(load.readWait, 0.002);
    EXPECT_EQ(load.writeWait, 0);
    EXPECT_EQ(load.utilisation, 0.25);
  }
  plugIn("New", "/bus/card/other");
  EXPECT_EQ(meter.read().drives.size(), 1u) << "one that came since has nothing to compare with";
  EXPECT_EQ(meter.read().drives.size(), 2u);
}

}  // namespace
}  // namespace kmv::simulation
