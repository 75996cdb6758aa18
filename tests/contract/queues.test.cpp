// SPDX-License-Identifier: MIT
#include "contract/QueueHarness.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

using namespace std::chrono_literals;

TEST_P(QueueContract, TasksRunInTheOrderInWhichTheyCameAndSyncTakesItsPlaceAmongThem) {
  const auto queue = makeQueue("line");
  std::string order;
  queue->sync([&] {
    queue->async([&] {
      order += 'a';
      queue->async([&] { order += 'd'; });  // goes to the end, not before b
    });
    queue->async([&] { order += 'b'; });
    EXPECT_EQ(order, "");
  });
  queue->sync([&] { order += 'c'; });
  runUntilIdle();
  EXPECT_TRUE(order == "abcd" || order == "abdc") << order;
}

TEST_P(QueueContract, AnExceptionReachesTheCallerOfSyncAndTheQueueGoesOn) {
  const auto queue = makeQueue("line");
  EXPECT_THROW(queue->sync([] { throw std::runtime_error("unplugged"); }), std::runtime_error);
  EXPECT_FALSE(queue->isCurrent());
  bool ranLater = false;
  queue->async([&] { ranLater = true; });
  queue->sync([&] { EXPECT_TRUE(ranLater); });
}

TEST_P(QueueContract, AnExceptionOutOfAnAsynchronousTaskStopsTheProcessAndNamesTheQueue) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto queue = makeQueue("line");
  const auto unplugged = [] { throw std::runtime_error("unplugged"); };
  EXPECT_DEATH(queue->async(unplugged); runUntilIdle(), "KMVDriveLibrary: .*\"line\".*: unplugged");
  EXPECT_DEATH(queue->after(1ms, [] { throw 1; }); runUntilIdle(), "\"line\".*unknown");
  EXPECT_DEATH(mainQueue().async(unplugged); mainQueue().drain(), "\"main\".*: unplugged");
}

TEST_P(QueueContract, AQueueIsCurrentInItsTasksAndInWhatTheyWaitFor) {
  const auto outer = makeQueue("outer");
  const auto inner = makeQueue("inner");
  int checks = 0;
  const auto check = [&] {
    EXPECT_TRUE(outer->isCurrent());
    EXPECT_FALSE(inner->isCurrent());
    inner->sync([&] {
      EXPECT_TRUE(outer->isCurrent());
      EXPECT_TRUE(inner->isCurrent());
      EXPECT_FALSE(mainQueue().isCurrent());
      ++checks;
    });
    EXPECT_FALSE(inner->isCurrent());
  };
  outer->sync(check);
  outer->async(check);
  runUntilIdle();
  EXPECT_EQ(checks, 2);
  EXPECT_FALSE(outer->isCurrent());
}

TEST_P(QueueContract, DelayedTasksRunWhenTheyAreDueEvenOfAQueueThatWasLetGoOf) {
  auto queue = makeQueue("line");
  std::string order;
  queue->after(0ms, [&] { order += 'a'; });
  queue->async([&] { order += 'b'; });
  queue->after(300ms, [&] { order += 'd'; });  // far enough apart for a busy machine
  queue->after(20ms, [&] { order += 'c'; });
  queue.reset();
  runUntilIdle();
  EXPECT_EQ(order, "abcd");
}

TEST_P(QueueContract, DrainingTheMainQueueRunsWhatIsThereAndNotWhatThatHandsOver) {
  std::string order;
  mainQueue().async([&] {
    EXPECT_TRUE(mainQueue().isCurrent());
    EXPECT_EQ(mainQueue().drain(), 0u) << "it is drained already";
    order += 'a';
    mainQueue().async([&] { order += 'c'; });
  });
  mainQueue().async([&] { order += 'b'; });
  EXPECT_EQ(order, "");
  EXPECT_EQ(mainQueue().waitingTasks(), 2u);
  EXPECT_EQ(mainQueue().drain(), 2u);
  EXPECT_EQ(order, "ab");
  EXPECT_EQ(mainQueue().waitingTasks(), 1u);
  EXPECT_EQ(mainQueue().drain(), 1u);
  EXPECT_EQ(mainQueue().drain(), 0u);
  EXPECT_EQ(order, "abc");
}

TEST_P(QueueContract, RunningTheMainQueueEndsAfterTheTaskThatStopsItAndLeavesTheRest) {
  std::string order;
  mainQueue().async([&] { order += 'a'; });
  mainQueue().after(2ms, [&] {
    order += 'b';
    mainQueue().stop();
  });
  mainQueue().run();
  EXPECT_EQ(order, "ab");
  mainQueue().async([&] { order += 'c'; });
  mainQueue().stop();  // counts for the next run
  mainQueue().run();
  EXPECT_EQ(order, "ab");
  mainQueue().async([&] { mainQueue().stop(); });
  mainQueue().run();  // the earlier stop is used up: this one ends with the task above
  EXPECT_EQ(order, "abc");
  EXPECT_EQ(mainQueue().drain(), 0u);
}

TEST_P(QueueContract, WaitingForAnOwnQueueStopsTheProcessAndNamesTheQueues) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto assets = makeQueue("assets");
  const auto events = makeQueue("events");
  EXPECT_DEATH(assets->sync([&] { assets->sync([] {}); }), "KMVDriveLibrary: .*\"assets\"");
  EXPECT_DEATH(assets->sync([&] { events->sync([&] { assets->sync([] {}); }); }),
               "\"assets\".*\"events\"|\"events\".*\"assets\"");
  EXPECT_DEATH(
      {
        assets->async([&] { assets->sync([] {}); });
        runUntilIdle();
      },
      "\"assets\"");
  EXPECT_DEATH(
      {
        mainQueue().async([&] { assets->sync([&] { mainQueue().sync([] {}); }); });
        mainQueue().drain();
      },
      "\"assets\".*\"main\"|\"main\".*\"assets\"");
}

/// Each of the queues waits for the next, and the last for the first.
TEST_P(QueueCycles, QueuesThatWaitForEachOtherStopTheProcessAndAreNamed) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto filing = makeQueue("filing"), events = makeQueue("events"), sizes = makeQueue("sizes");
  const auto waitInACircle = [&](const std::vector<SerialQueue*>& queues) {
    for (std::size_t i = 0; i < queues.size(); ++i) {
      SerialQueue& next = *queues[(i + 1) % queues.size()];
      const auto wait = [&next] { next.sync([] {}); };
      queues[i]->async([&, wait] { waitForOthers(queues.size()), wait(); });
    }
    runUntilIdle();
  };
  EXPECT_DEATH(waitInACircle({filing.get(), events.get()}), "\"filing\".*\"events\"|\"events\".*\"filing\"");
  EXPECT_DEATH(waitInACircle({filing.get(), events.get(), sizes.get()}), "\"sizes\"");
  EXPECT_DEATH(waitInACircle({filing.get(), &mainQueue()}), "\"filing\".*\"main\"|\"main\".*\"filing\"");
}

}  // namespace
}  // namespace kmv::test
