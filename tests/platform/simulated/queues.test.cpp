// SPDX-License-Identifier: MIT
// Seeds and virtual time; what every backend's queues do is in tests/contract.
#include "platform/simulated/Scheduler.h"
#include "platform/simulated/SimulatedMachine.h"
#include "support/Testing.h"

namespace kmv {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;

/// Three queues of four tasks each; gives the order in which they ran, as "a0b0a1…".
std::string interleaving(std::uint64_t seed) {
  simulated::Scheduler scheduler(seed);
  std::string ran;
  for (const char* label : {"a", "b", "c"}) {
    const auto queue = scheduler.makeSerialQueue(label);
    for (const char* number : {"0", "1", "2", "3"})
      queue->async([&ran, label, number] { ran += std::string(label) + number; });
  }
  EXPECT_EQ(scheduler.runUntilIdle(), 12U);
  return ran;
}

TEST(SimulatedQueues, InterleaveByTheSeed) {
  const std::string order = interleaving(1);
  EXPECT_EQ(order, interleaving(1));
  EXPECT_NE(order, interleaving(2));
}

class SimulatedTime : public SimulatedMachine {
 protected:
  std::shared_ptr<SerialQueue> queue = makeSerialQueue("worker");
  Lines log;
  void note(const std::string& what) { log.push_back(what + "@" + std::to_string(machine.now() / 1s)); }
};

TEST_F(SimulatedTime, EachDelayedTaskRunsAtItsTimeOnBothClocks) {
  Clock& clock = platform.clock();
  const double start = clock.now().secondsSinceReferenceDate;
  EXPECT_EQ(start, 788'918'400) << "2026-01-01";
  queue->after(3s, [&] {
    note("late");
    EXPECT_EQ(clock.monotonicNow(), 3s);
    EXPECT_EQ(clock.now().secondsSinceReferenceDate, start + 3);
  });
  mainQueue().after(1s, [this] {
    note("early");
    queue->after(1s, [this] { note("follow-up"); });
  });
  EXPECT_EQ(machine.runUntilIdle(), 0U) << "time stands still";
  machine.advance(2500ms);
  EXPECT_THAT(log, ElementsAre("early@1", "follow-up@2"));
  EXPECT_EQ(machine.now(), 2500ms);
  machine.advance(10s);
  EXPECT_EQ(log.back(), "late@3");
  machine.setWallClock(Date{start - 60});
  machine.advance(1s);
  EXPECT_EQ(clock.now().secondsSinceReferenceDate, start - 59);
  EXPECT_EQ(clock.monotonicNow(), 13500ms);
}

TEST_F(SimulatedTime, RunningTheMainQueueJumpsToTheNextDelayedTask) {
  EXPECT_EQ(mainQueue().fileDescriptor(), -1);
  queue->after(5s, [this] {
    note("worker");
    mainQueue().async([this] {
      note(machine.currentQueueLabel());
      mainQueue().stop();
    });
  });
  mainQueue().run();
  EXPECT_THAT(log, ElementsAre("worker@5", "main@5"));
  EXPECT_DEATH(mainQueue().run(), "no task is left that could call stop");
}

TEST_F(SimulatedTime, SyncRunsEarlierTasksAsOnAnotherThread) {
  const auto outer = makeSerialQueue("outer");
  queue->async([&] { EXPECT_FALSE(outer->isCurrent()) << "a real machine runs this on another thread"; });
  outer->sync([&] {
    queue->sync([&] { EXPECT_EQ(machine.currentQueueLabel(), "worker"); });
    EXPECT_EQ(machine.currentQueueLabel(), "outer");
  });
  EXPECT_EQ(machine.currentQueueLabel(), "");
}

TEST_F(SimulatedTime, ADeadlockAndASecondThreadStopTheProcess) {
  const auto other = makeSerialQueue("other");
  EXPECT_DEATH(queue->sync([&] { other->sync([&] { queue->sync([] {}); }); }),
               "task of queue \"other\" waits for queue \"worker\"");
  EXPECT_DEATH(std::thread([&] { queue->async([] {}); }).join(), "runs on one thread");
}

}  // namespace
}  // namespace kmv
