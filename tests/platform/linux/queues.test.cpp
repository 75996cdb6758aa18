// SPDX-License-Identifier: MIT
#include "platform/linux/queues/Queues.h"
#include "platform/linux/queues/WorkerPool.h"
#include "support/OtherThreads.h"
#include "support/Testing.h"

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

void allowThreads(bool isAllowed) {
  rlimit limit{};
  getrlimit(RLIMIT_NPROC, &limit);
  limit.rlim_cur = isAllowed ? limit.rlim_max : 0;
  setrlimit(RLIMIT_NPROC, &limit);
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
  const auto before = otherThreads();
  queue_->sync([before] { EXPECT_EQ(otherThreads(), before); });
  EXPECT_EQ(otherThreads(), before);
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

TEST_F(LinuxQueues, AfterABurstOneWorkerAndTheTimerStayAndTheirSignalsGoToTheHost) {
  sigset_t blocked;
  std::array<char, 16> name{};
  queue_->after(1ms, [] {});
  holdUp(*queue_);
  factory_.makeSerialQueue("second worker")->async([&] {
    pthread_sigmask(SIG_BLOCK, nullptr, &blocked);
    pthread_getname_np(pthread_self(), name.data(), name.size());
    mayGoOn_.set_value();
  });
  queue_->sync([] {});
  EXPECT_STREQ(name.data(), "kmv-worker");
  for (const int signal : {SIGTERM, SIGINT, SIGCHLD, SIGUSR1}) EXPECT_EQ(sigismember(&blocked, signal), 1);
  for (const int fault : {SIGSEGV, SIGABRT}) EXPECT_EQ(sigismember(&blocked, fault), 0);
  EXPECT_TRUE(becomesTrue([] { return otherThreads() == 2; }));
}

/// From here on the system gives this process no thread; only for a child that ends itself.
void useUpTheThreads() {
  if (geteuid() == 0 && setuid(65534) != 0) _exit(2);  // root has no limit
  allowThreads(false);
}

/// The name of the thread that `queue` runs its tasks on.
std::string threadOf(SerialQueue& queue) {
  std::promise<std::string> name;
  queue.async([&] {
    std::array<char, 16> text{};
    pthread_getname_np(pthread_self(), text.data(), text.size());
    name.set_value(text.data());
  });
  return name.get_future().get();
}

TEST_F(LinuxQueues, WithoutAnyThreadToBeHadNothingIsLostAndTheHostLivesOn) {
  const auto other = factory_.makeSerialQueue("other");
  // Before the first one: who waits runs what is before it, and the main thread hands on what is due.
  const auto fromTheStart = [&] {
    useUpTheThreads();
    queue_->async([&] { other->async([&] { order_ += 'b'; }), order_ += 'a'; });
    queue_->sync([&] { other->sync([&] { order_ += 'c'; }); });
    main_.after(5ms, [&] { order_ += 'd', main_.stop(); });
    main_.run();
    allowThreads(true);
    other->after(5ms, [&] { order_ += 'e', main_.stop(); });
    main_.run();
    _exit(order_ == "abcde" ? 0 : 1);
  };
  EXPECT_EXIT(fromTheStart(), ::testing::ExitedWithCode(0), "");
  // Later: one worker was kept, however long nothing happened; and when it waits, the timer stands in.
  const auto later = [&] {
    queue_->after(1ms, [] {});
    threadOf(*queue_);
    useUpTheThreads();
    if (threadOf(*queue_) != "kmv-worker") _exit(3);
    queue_->async([&] {
      const VolumeWait waiting;
      mayGoOn_.get_future().wait();
    });
    if (threadOf(*other) != "kmv-timer") _exit(4);
    allowThreads(true);
    const auto isBack = [&] { return threadOf(*factory_.makeSerialQueue("third")) == "kmv-worker"; };
    _exit(becomesTrue(isBack) ? 0 : 5);
  };
  EXPECT_EXIT(later(), ::testing::ExitedWithCode(0), "");
}

TEST_F(LinuxQueues, AChildAfterForkHasValuesAndNothingThatNeedsAThread) {
  const auto inChild = [&](auto use) {
    if (const pid_t child = fork(); child != 0) {
      int status = 0;
      waitpid(child, &status, 0);
      _exit(WIFSIGNALED(status) ? 100 + WTERMSIG(status) : WEXITSTATUS(status));
    }
    alarm(20);  // it would hang
    use();
    _exit(0);
  };
  const ::testing::ExitedWithCode works(0), stops(100 + SIGABRT);
  const char* const message = "in a child after fork";
  EXPECT_EXIT(inChild([&] { threadOf(*queue_); }), works, "");  // a daemon, which forks first
  EXPECT_EXIT((threadOf(*queue_), inChild([&] { factory_.makeSerialQueue("free")->sync([] {}); })), works,
              "");
  EXPECT_EXIT((threadOf(*queue_), inChild([&] { queue_->async([] {}); })), stops, message);
  EXPECT_EXIT((threadOf(*queue_), inChild([&] { queue_->after(1h, [] {}); })), stops, message);
  EXPECT_EXIT((threadOf(*queue_), inChild([&] { main_.run(); })), stops, message);
  EXPECT_EXIT((holdUp(*queue_), inChild([&] { queue_->sync([] {}); })), stops, message);
}

TEST_F(LinuxQueues, MoreQueuesThanWorkersMayWaitForOneThatNeedsAWorkerItself) {
  constexpr std::size_t kWaiting = WorkerPool::kMostActive + 6;
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

TEST_F(LinuxQueues, HoweverManyTasksWaitForVolumesTheThreadsAreBoundedAndTheLibrarysOwnQueuesGoOn) {
  constexpr std::size_t kMost = WorkerPool::kMostActive + WorkerPool::kMostUncountedAtVolumes;
  std::atomic<std::size_t> started = 0, finished = 0;
  const auto gate = mayGoOn_.get_future().share();
  for (std::size_t i = 0; i < 3 * kMost; ++i) {
    factory_.makeSerialQueue("volume")->async([&, gate] {
      const VolumeWait walk, look;  // counts once
      ++started;
      gate.wait();
      ++finished;
    });
  }
  EXPECT_TRUE(becomesTrue([&] { return started == kMost; }));
  EXPECT_EQ(threadOf(*factory_.makeSerialQueue("core", QualityOfService::core)), "kmv-worker");
  EXPECT_FALSE(WorkerPool::shared().offer(nullptr));
  EXPECT_EQ(started, kMost);
  mayGoOn_.set_value();
  EXPECT_TRUE(becomesTrue([&] { return finished == 3 * kMost; }));
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
