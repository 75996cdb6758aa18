// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <fstream>
#include <future>
#include <iterator>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/linux/queues/Queues.h"
#include "platform/linux/queues/WorkerPool.h"
#include "support/OtherThreads.h"

namespace kmv::test {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = 20s;

template <typename Condition>
bool becomesTrue(Condition condition) {
  const auto deadline = Clock::now() + kPatience;
  while (!condition()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

/// True when the kernel has put this thread of ours to sleep.
bool isAsleep(pid_t thread) {
  std::ifstream file("/proc/self/task/" + std::to_string(thread) + "/status");
  const std::string status(std::istreambuf_iterator<char>(file), {});
  return status.find("\nState:\tS") != std::string::npos;
}

bool isReadable(int descriptor, int timeoutMilliseconds = 0) {
  pollfd waiting{descriptor, POLLIN, 0};
  return poll(&waiting, 1, timeoutMilliseconds) == 1;
}

const auto fail = [] { throw std::runtime_error("no such drive"); };

class LinuxQueues : public ::testing::Test {
 protected:
  LinuxQueues() { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  LinuxQueueFactory factory_;
  MainQueue& main_ = factory_.mainQueue();
  std::shared_ptr<SerialQueue> queue_ = factory_.makeSerialQueue("queue");
  std::promise<void> mayGoOn_;  // opens the gate that `holdUp` shuts
  std::string order_;

  void holdUp(SerialQueue& queue) {
    queue.async([gate = mayGoOn_.get_future().share()] { gate.wait(); });
  }
};

TEST_F(LinuxQueues, ManyThreadsShareAQueueOneTaskAtATimeAndEachKeepsItsOrder) {
  constexpr int kTasks = 3000;
  bool isBusy = false;  // plain on purpose: the queue alone guards it
  std::array<int, 4> last{};
  int faults = 0;
  std::vector<std::thread> producers;
  for (int& mine : last) {
    producers.emplace_back([&] {
      for (int number = 1; number <= kTasks; ++number) {
        const auto task = [&, number] {
          faults += std::exchange(isBusy, true) || std::exchange(mine, number) != number - 1;
          isBusy = false;
        };
        if (number % 3 == 0) {
          queue_->sync(task);
        } else {
          queue_->async(task);
        }
      }
    });
  }
  for (auto& producer : producers) producer.join();
  queue_->sync([&] { EXPECT_EQ(last, (std::array{kTasks, kTasks, kTasks, kTasks})); });
  EXPECT_EQ(faults, 0);
}

TEST_F(LinuxQueues, SyncOnAFreeQueueRunsOnTheCallersThreadAndStartsNone) {
  ASSERT_TRUE(becomesTrue([] { return !hasOtherThreads(); }));
  queue_->sync([] { EXPECT_FALSE(hasOtherThreads()); });
  EXPECT_FALSE(hasOtherThreads());
}

TEST_F(LinuxQueues, AWaiterRunsItsTaskItselfBetweenItsNeighboursInTheLine) {
  holdUp(*queue_);
  queue_->async([&] { order_ += 'a'; });
  std::atomic<pid_t> waiterId = 0;
  std::thread waiter([&] {
    waiterId = gettid();
    EXPECT_THROW(queue_->sync([&] {
      order_ += gettid() == waiterId ? "b" : "elsewhere";
      fail();
    }),
                 std::runtime_error);
  });
  ASSERT_TRUE(becomesTrue([&] { return waiterId != 0 && isAsleep(waiterId); }));
  queue_->async([&] { order_ += 'c'; });
  mayGoOn_.set_value();
  waiter.join();
  queue_->sync([&] { EXPECT_EQ(order_, "abc"); });
}

TEST_F(LinuxQueues, ThreadsEndSoonAfterTheWorkAndTheirSignalsGoToTheHost) {
  sigset_t blocked;
  std::array<char, 16> name{};
  queue_->after(1ms, [] {});
  queue_->async([&] {
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    pthread_getname_np(pthread_self(), name.data(), name.size());
  });
  queue_->sync([] {});
  EXPECT_STREQ(name.data(), "kmv-worker");
  for (const int signal : {SIGTERM, SIGINT, SIGCHLD, SIGUSR1}) EXPECT_EQ(sigismember(&blocked, signal), 1);
  for (const int fault : {SIGSEGV, SIGABRT}) EXPECT_EQ(sigismember(&blocked, fault), 0);
  EXPECT_TRUE(becomesTrue([] { return !hasOtherThreads(); }));
}

TEST_F(LinuxQueues, MoreQueuesThanWorkersMayWaitForOneThatNeedsAWorkerItself) {
  constexpr std::size_t kWaiting = WorkerPool::kMaximumActiveWorkers + 6;
  std::atomic<std::size_t> started = 0, finished = 0;
  std::vector<std::shared_ptr<SerialQueue>> queues;
  holdUp(*queue_);
  for (std::size_t i = 0; i < kWaiting; ++i) {
    queues.push_back(factory_.makeSerialQueue("waiting"));
    queues.back()->async([&] {
      ++started;
      queue_->sync([&] { ++finished; });
    });
  }
  EXPECT_TRUE(becomesTrue([&] { return started == kWaiting; }));
  mayGoOn_.set_value();
  EXPECT_TRUE(becomesTrue([&] { return finished == kWaiting; }));
  for (const auto& queue : queues) queue->sync([] {});
}

TEST_F(LinuxQueues, AWorkerThatWaitsForAVolumeTakesNobodysTurnHoweverOftenItSaysSo) {
  const auto other = factory_.makeSerialQueue("other");
  std::promise<void> began, ran;
  queue_->async([&] {
    const WorkerPool::WaitingScope walk(WorkerPool::WaitsFor::volume), look(WorkerPool::WaitsFor::volume);
    began.set_value();
    mayGoOn_.get_future().wait();
  });
  began.get_future().wait();
  other->async([&] { ran.set_value(); });
  EXPECT_EQ(ran.get_future().wait_for(kPatience), std::future_status::ready);
  mayGoOn_.set_value();
  queue_->sync([] {});
}

TEST_F(LinuxQueues, ADelayedTaskIsNeverEarlyAndADelayOfForEverIsNeverOver) {
  const auto start = Clock::now();
  std::promise<Clock::duration> passed;
  queue_->after(60ms, [&] { passed.set_value(Clock::now() - start); });
  EXPECT_GE(passed.get_future().get(), 60ms);
  EXPECT_EXIT(
      {
        queue_->after(std::chrono::nanoseconds::max(), [] { _exit(1); });
        queue_->after(5ms, [] { _exit(0); });
        std::this_thread::sleep_for(kPatience);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(LinuxQueues, AnExceptionOutOfAnAsynchronousTaskStopsTheProcessAndNamesTheQueue) {
  EXPECT_DEATH((queue_->async(fail), queue_->sync([] {})), "\"queue\".*no such drive");
  EXPECT_DEATH((main_.async([] { throw 7; }), main_.drain()), "\"main\"");
}

TEST_F(LinuxQueues, TheMainQueuesDescriptorIsReadableExactlyWhileTasksWait) {
  int nested = -1;
  main_.async([] {});
  const int descriptor = main_.fileDescriptor();
  EXPECT_EQ(main_.fileDescriptor(), descriptor);
  EXPECT_TRUE(isReadable(descriptor));
  EXPECT_EQ(main_.drain(), 1u);
  EXPECT_FALSE(isReadable(descriptor));

  std::thread poster([&] {
    main_.after(5ms, [&] {
      main_.async([] {});
      nested = static_cast<int>(main_.drain());  // a loop of the host inside a task
      EXPECT_FALSE(isReadable(descriptor));
    });
  });
  EXPECT_TRUE(isReadable(descriptor, 20'000));
  EXPECT_EQ(main_.drain(), 1u);
  EXPECT_EQ(nested, 0);
  EXPECT_TRUE(isReadable(descriptor));
  EXPECT_EQ(main_.drain(), 1u);
  poster.join();
}

TEST_F(LinuxQueues, OtherThreadsWaitForTheMainThreadAndStopIt) {
  const pid_t mainThread = gettid();
  std::thread host([&] {
    main_.async([&] { order_ += 'a'; });
    main_.sync([&] { order_ += gettid() == mainThread ? "b" : "elsewhere"; });
    EXPECT_EQ(order_, "ab");
    EXPECT_THROW(main_.sync(fail), std::runtime_error);
    main_.stop();
  });
  main_.run();
  host.join();
}

}  // namespace
}  // namespace kmv::test
