// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>
#include <poll.h>
#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <fstream>
#include <future>
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
  std::ifstream status("/proc/self/task/" + std::to_string(thread) + "/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("State:")) return line.find('S', 6) != std::string::npos;
  }
  return false;
}

bool isReadable(int descriptor, int timeoutMilliseconds) {
  pollfd waiting{descriptor, POLLIN, 0};
  return poll(&waiting, 1, timeoutMilliseconds) == 1 && (waiting.revents & POLLIN) != 0;
}

class LinuxQueues : public ::testing::Test {
 protected:
  LinuxQueueFactory factory_;
};

TEST_F(LinuxQueues, ManyThreadsShareAQueueOneTaskAtATimeAndEachKeepsItsOrder) {
  constexpr int kProducers = 4;
  constexpr int kTasks = 3000;
  const auto queue = factory_.makeSerialQueue("shared");
  bool isBusy = false;  // plain on purpose: the queue alone guards it
  std::array<int, kProducers> last{};
  int overlaps = 0;
  int disorders = 0;
  std::vector<std::thread> producers;
  for (std::size_t producer = 0; producer < kProducers; ++producer) {
    producers.emplace_back([&, producer] {
      for (int number = 1; number <= kTasks; ++number) {
        const auto task = [&, producer, number] {
          if (std::exchange(isBusy, true)) ++overlaps;
          if (std::exchange(last[producer], number) != number - 1) ++disorders;
          isBusy = false;
        };
        if (number % 3 == 0) {
          queue->sync(task);
        } else {
          queue->async(task);
        }
      }
    });
  }
  for (auto& producer : producers) producer.join();
  queue->sync([&] {
    for (const int number : last) EXPECT_EQ(number, kTasks);
  });
  EXPECT_EQ(overlaps, 0);
  EXPECT_EQ(disorders, 0);
}

TEST_F(LinuxQueues, SyncOnAFreeQueueRunsOnTheCallersThreadAndStartsNone) {
  const auto queue = factory_.makeSerialQueue("free");
  ASSERT_TRUE(becomesTrue([] { return !hasOtherThreads(); }));
  queue->sync([] { EXPECT_FALSE(hasOtherThreads()); });
  EXPECT_FALSE(hasOtherThreads());
}

TEST_F(LinuxQueues, AWaiterRunsItsTaskItselfBetweenItsNeighboursInTheLine) {
  const auto queue = factory_.makeSerialQueue("line");
  std::promise<void> mayGoOn;
  std::string order;
  queue->async([&, gate = mayGoOn.get_future().share()] { gate.wait(); });
  queue->async([&] { order += 'a'; });
  std::atomic<pid_t> waiterId = 0;
  std::thread waiter([&] {
    waiterId = gettid();
    EXPECT_THROW(queue->sync([&] {
      order += 'b';
      EXPECT_EQ(gettid(), waiterId);
      throw std::runtime_error("passes through");
    }),
                 std::runtime_error);
  });
  ASSERT_TRUE(becomesTrue([&] { return waiterId != 0 && isAsleep(waiterId); }));
  queue->async([&] { order += 'c'; });
  mayGoOn.set_value();
  waiter.join();
  queue->sync([] {});
  EXPECT_EQ(order, "abc");
}

TEST_F(LinuxQueues, ThreadsEndSoonAfterTheWorkAndTheirSignalsGoToTheHost) {
  const auto queue = factory_.makeSerialQueue("short");
  sigset_t blocked;
  std::array<char, 16> name{};
  queue->after(1ms, [] {});
  queue->async([&] {
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    pthread_getname_np(pthread_self(), name.data(), name.size());
  });
  queue->sync([] {});
  EXPECT_STREQ(name.data(), "kmv-worker");
  for (const int signal : {SIGTERM, SIGINT, SIGCHLD, SIGUSR1}) EXPECT_EQ(sigismember(&blocked, signal), 1);
  EXPECT_EQ(sigismember(&blocked, SIGSEGV), 0);
  EXPECT_TRUE(becomesTrue([] { return !hasOtherThreads(); }));
}

TEST_F(LinuxQueues, MoreQueuesThanWorkersMayWaitForOneThatNeedsAWorkerItself) {
  constexpr std::size_t kWaiting = WorkerPool::kMaximumActiveWorkers + 6;
  const auto busy = factory_.makeSerialQueue("busy");
  std::promise<void> mayGoOn;
  std::atomic<std::size_t> started = 0;
  std::atomic<std::size_t> finished = 0;
  std::vector<std::shared_ptr<SerialQueue>> queues;
  busy->async([gate = mayGoOn.get_future().share()] { gate.wait(); });
  for (std::size_t i = 0; i < kWaiting; ++i) {
    queues.push_back(factory_.makeSerialQueue("waiting"));
    queues.back()->async([&] {
      ++started;
      busy->sync([&] { ++finished; });
    });
  }
  EXPECT_TRUE(becomesTrue([&] { return started == kWaiting; }));
  mayGoOn.set_value();
  EXPECT_TRUE(becomesTrue([&] { return finished == kWaiting; }));
  for (const auto& queue : queues) queue->sync([] {});
}

TEST_F(LinuxQueues, AWorkerThatWaitsForAVolumeTakesNobodysTurnHoweverOftenItSaysSo) {
  const auto stuck = factory_.makeSerialQueue("stuck"), other = factory_.makeSerialQueue("other");
  std::promise<void> began, mayGoOn, ran;
  stuck->async([&] {
    const WorkerPool::WaitingScope walk(WorkerPool::WaitsFor::volume), look(WorkerPool::WaitsFor::volume);
    began.set_value();
    mayGoOn.get_future().wait();
  });
  began.get_future().wait();
  other->async([&] { ran.set_value(); });
  EXPECT_EQ(ran.get_future().wait_for(kPatience), std::future_status::ready);
  mayGoOn.set_value();
  stuck->sync([] {});
}

TEST_F(LinuxQueues, ADelayedTaskIsNeverEarly) {
  const auto queue = factory_.makeSerialQueue("timed");
  const auto start = Clock::now();
  std::promise<Clock::duration> passed;
  queue->after(60ms, [&] { passed.set_value(Clock::now() - start); });
  auto future = passed.get_future();
  ASSERT_EQ(future.wait_for(kPatience), std::future_status::ready);
  EXPECT_GE(future.get(), 60ms);
}

TEST_F(LinuxQueues, ADelayOfForEverIsNeverOver) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto queue = factory_.makeSerialQueue("timed");
  EXPECT_EXIT(
      {
        queue->after(std::chrono::nanoseconds::max(), [] { _exit(1); });
        queue->after(5ms, [] { _exit(0); });
        std::this_thread::sleep_for(kPatience);
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(LinuxQueues, AnExceptionOutOfAnAsynchronousTaskStopsTheProcessAndNamesTheQueue) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto queue = factory_.makeSerialQueue("fragile");
  EXPECT_DEATH(
      {
        queue->async([] { throw std::runtime_error("no such drive"); });
        queue->sync([] {});
      },
      "\"fragile\".*no such drive");
  EXPECT_DEATH(
      {
        factory_.mainQueue().async([] { throw 7; });
        factory_.mainQueue().drain();
      },
      "\"main\"");
}

TEST_F(LinuxQueues, TheMainQueuesDescriptorIsReadableExactlyWhileTasksWait) {
  MainQueue& queue = factory_.mainQueue();
  int nested = -1;
  queue.async([] {});
  const int descriptor = queue.fileDescriptor();
  ASSERT_GE(descriptor, 0);
  EXPECT_EQ(queue.fileDescriptor(), descriptor);
  EXPECT_TRUE(isReadable(descriptor, 0));
  EXPECT_EQ(queue.drain(), 1u);
  EXPECT_FALSE(isReadable(descriptor, 0));

  std::thread poster([&] {
    queue.after(5ms, [&] {
      queue.async([] {});
      nested = static_cast<int>(queue.drain());  // a loop of the host inside a task
      EXPECT_FALSE(isReadable(descriptor, 0));
    });
  });
  EXPECT_TRUE(isReadable(descriptor, 20'000));
  EXPECT_EQ(queue.drain(), 1u);
  EXPECT_EQ(nested, 0);
  EXPECT_TRUE(isReadable(descriptor, 0));
  EXPECT_EQ(queue.drain(), 1u);
  poster.join();
}

TEST_F(LinuxQueues, OtherThreadsWaitForTheMainThreadAndStopIt) {
  MainQueue& queue = factory_.mainQueue();
  const auto mainThread = std::this_thread::get_id();
  std::string order;
  std::thread host([&] {
    queue.async([&] { order += 'a'; });
    queue.sync([&] {
      order += 'b';
      EXPECT_EQ(std::this_thread::get_id(), mainThread);
    });
    EXPECT_EQ(order, "ab");
    EXPECT_THROW(queue.sync([] { throw std::runtime_error("passes through"); }), std::runtime_error);
    queue.stop();
  });
  queue.run();
  host.join();
  EXPECT_EQ(order, "ab");
}

}  // namespace
}  // namespace kmv::test
