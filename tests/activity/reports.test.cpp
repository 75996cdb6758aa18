// SPDX-License-Identifier: MIT
#include "activity/Monitor.h"

namespace kmv::simulation {
namespace {

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

}  // namespace
}  // namespace kmv::simulation
