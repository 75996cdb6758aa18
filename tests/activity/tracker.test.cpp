// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

class Tracker : public ::testing::Test {
 protected:
  using Sample = KMVDriveIOActivityTracker::Sample;

  static Sample sample(std::uint64_t read, std::uint64_t written, double time) {
    const auto made = std::make_shared<DeviceIOStatistics>(read, written);
    made->setTimeStamp(Date{time});
    return made;
  }
  /// "read+5 written+0 in 2": what the drive's entry says; "nothing" without one. Empties the table.
  std::string moved(const URL& drive) {
    const auto activity = tracker.activityLookup()->find(drive);
    tracker.activityLookup()->removeAll();
    if (!activity) return "nothing";
    const auto side = [](const char* name, const KMVDriveIOActivity::Delta& delta) {
      return delta == nullptr ? std::string()
                              : name + std::to_string(delta->byteDelta()) + " in " +
                                    std::to_string(static_cast<int>(delta->elapsedTime())) + "; ";
    };
    return side("read ", (*activity)->readDelta()) + side("wrote ", (*activity)->writeDelta());
  }

  SimulatedPlatform& machine = SimulatedPlatform::install();
  KMVDriveIOActivityTracker tracker;
  const URL card = URL::fileURLWithPath("/Volumes/Card", true);
};

TEST_F(Tracker, EachSampleIsComparedWithTheOneBeforeIt) {
  const auto movedUntil = [&](std::uint64_t read, std::uint64_t written, double time) {
    tracker.updateStats(sample(read, written, time), card);
    return moved(card);
  };
  EXPECT_EQ(movedUntil(100, 100, 1), "nothing") << "the first one is where counting begins";
  EXPECT_EQ(movedUntil(150, 100, 3), "read 50 in 2; ");
  EXPECT_EQ(movedUntil(150, 100, 4), "nothing");
  EXPECT_EQ(movedUntil(151, 170, 4), "nothing") << "no time passed";
  EXPECT_EQ(movedUntil(151, 171, 3), "nothing") << "the clock went back";
  EXPECT_EQ(movedUntil(152, 171, 5), "read 1 in 2; ");
  EXPECT_EQ(movedUntil(92, 172, 6), "read 18446744073709551556 in 1; wrote 1 in 1; ") << "it wraps around";
  tracker.updateStats(nullptr, card, "A");
  EXPECT_FALSE(tracker.trackingId()) << "no sample changes nothing";
  const auto timeless = sample(500, 0, 7);
  timeless->setTimeStamp(std::nullopt);
  tracker.updateStats(timeless, card);
  EXPECT_EQ(moved(card), "nothing");
}

TEST_F(Tracker, AnotherSenderBeginsAnewForTheWholeTracker) {
  const URL stick = URL::fileURLWithPath("/Volumes/Stick", true);
  tracker.updateStats(sample(1, 0, 1), card, "A");
  tracker.updateStats(sample(1, 0, 1), stick, "A");
  tracker.updateStats(sample(2, 0, 2), card, "B");
  EXPECT_EQ(moved(card), "nothing");
  tracker.updateStats(sample(2, 0, 2), stick, "A");
  EXPECT_EQ(moved(stick), "nothing") << "one identifier for all drives";
  tracker.updateStats(sample(3, 0, 3), stick, "A");
  EXPECT_EQ(moved(stick), "read 1 in 1; ");
  tracker.updateStats(sample(3, 0, 3), card);
  EXPECT_EQ(moved(card), "read 1 in 1; ") << "none at all is no other one";
  EXPECT_FALSE(tracker.trackingId());
  const URL odd = *URL::fromString("file:///Volumes/Card/./");
  tracker.updateStats(sample(9, 0, 1), odd);
  tracker.updateStats(sample(10, 0, 2), odd);
  EXPECT_EQ(moved(card), "read 1 in 1; ") << "activity is kept by the standardised URL";
  EXPECT_EQ(tracker.cachedIOStatistics()->count(), 3u) << "samples by the URL as it is";
}

TEST_F(Tracker, RecordsReadTheFourTextsAndRatesLeaveOutStepsBack) {
  machine.advance(std::chrono::milliseconds(1500));
  const DeviceIOStatistics whole(Dictionary{{"Bytes (Read)", UINT64_MAX - 1},
                                            {"Bytes (Write)", -1},
                                            {"Latency Time (Write)", 4},
                                            {"Total Time (Read)", 9}});
  EXPECT_EQ(whole.bytesRead(), UINT64_MAX - 1);
  EXPECT_EQ(whole.bytesWritten(), UINT64_MAX);
  EXPECT_EQ(whole.readLatency(), 0u);
  EXPECT_EQ(whole.writeLatency(), 4u);
  EXPECT_EQ(whole.timeStamp(), (Date{788'918'401.5}));
  EXPECT_EQ(bytesPerSecond(KMVDriveActivityDelta(2, 10)), 5.0);
  EXPECT_EQ(bytesPerSecond(KMVDriveActivityDelta(0, 10)), std::nullopt);
  EXPECT_EQ(bytesPerSecond(KMVDriveActivityDelta(1, 40 - std::uint64_t{100})), std::nullopt);
  EXPECT_EQ(bytesMoved(KMVDriveActivityDelta(1, UINT64_MAX / 2)), UINT64_MAX / 2);
}

}  // namespace
}  // namespace kmv::simulation
