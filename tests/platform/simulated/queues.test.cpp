// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "platform/simulated/Scheduler.h"

namespace kmv {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using testing::SimulatedPlatform;

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

TEST(SimulatedQueues, InterleaveByTheSeedAndKeepEachQueuesOrder) {
  const std::string order = interleaving(1);
  EXPECT_EQ(order, interleaving(1));
  EXPECT_NE(order, interleaving(2));
  for (const char queue : {'a', 'b', 'c'}) {
    std::string numbers;
    for (std::size_t i = 0; i < order.size(); i += 2) {
      if (order[i] == queue) numbers += order[i + 1];
    }
    EXPECT_EQ(numbers, "0123");
  }
}

class SimulatedTime : public ::testing::Test {
 protected:
  SimulatedPlatform& machine = SimulatedPlatform::install(7);
  std::shared_ptr<SerialQueue> queue = makeSerialQueue("worker");
  std::vector<std::string> log;
  void note(const std::string& what) { log.push_back(what + "@" + std::to_string(machine.now() / 1s)); }
};

TEST_F(SimulatedTime, DelayedTasksRunInTheOrderInWhichTheyBecomeDueEachAtItsTime) {
  queue->after(3s, [this] { note("late"); });
  mainQueue().after(1s, [this] {
    note("early");
    queue->after(1s, [this] { note("follow-up"); });
  });
  queue->after(0s, [this] { note("now"); });
  machine.runUntilIdle();
  EXPECT_THAT(log, ElementsAre("now@0"));
  machine.advance(2500ms);
  EXPECT_THAT(log, ElementsAre("now@0", "early@1", "follow-up@2"));
  EXPECT_EQ(machine.now(), 2500ms);
  machine.advance(500ms);
  EXPECT_EQ(log.back(), "late@3");
}

TEST_F(SimulatedTime, TheMainQueueRunsUntilItIsStopped) {
  EXPECT_EQ(mainQueue().fileDescriptor(), -1);
  queue->after(5s, [this] {
    note("worker");
    mainQueue().async([this] {
      note(machine.currentQueueLabel());
      mainQueue().stop();
      mainQueue().async([this] { note("afterwards"); });
    });
  });
  mainQueue().run();
  EXPECT_THAT(log, ElementsAre("worker@5", "main@5"));
  mainQueue().async([] { mainQueue().async([] {}); });
  EXPECT_EQ(mainQueue().drain(), 2U) << "what tasks hand over waits for the next call";
  EXPECT_EQ(mainQueue().drain(), 1U);
  EXPECT_EQ(mainQueue().drain(), 0U);
  EXPECT_DEATH(mainQueue().run(), "no task is left that could call stop");
  EXPECT_DEATH(mainQueue().sync([] { mainQueue().drain(); }),
               "drain of the main queue was called while it runs");
}

TEST_F(SimulatedTime, SyncRunsWhatWaitsBeforeAndOnTheCallersChain) {
  const auto outer = makeSerialQueue("outer");
  queue->async([&] {
    note("earlier");
    EXPECT_FALSE(outer->isCurrent()) << "a real machine runs this on another thread";
  });
  outer->sync([&] {
    queue->sync([&] {
      note(machine.currentQueueLabel());
      EXPECT_TRUE(outer->isCurrent());
    });
  });
  EXPECT_THAT(log, ElementsAre("earlier@0", "worker@0"));
  EXPECT_THROW(queue->sync([] { throw 1; }), int);
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
