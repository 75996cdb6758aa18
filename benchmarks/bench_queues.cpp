// SPDX-License-Identifier: MIT
// What does a serial queue cost beside the bare means that a host would write by hand?
#include <KMVDriveLibrary/Queue.h>
#include <benchmark/benchmark.h>

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>

namespace {

constexpr std::int64_t kStreamLength = 100'000;

/// The queue that a host would write by hand: a thread, a mutex, a deque and a condition variable.
class HandWrittenQueue {
 public:
  HandWrittenQueue() : thread_([this] { serve(); }) {}
  ~HandWrittenQueue() {
    post(nullptr);
    thread_.join();
  }

  void post(std::function<void()> task) {
    {
      std::lock_guard lock(mutex_);
      tasks_.push_back(std::move(task));
    }
    arrived_.notify_one();
  }

 private:
  void serve() {
    while (true) {
      std::unique_lock lock(mutex_);
      arrived_.wait(lock, [this] { return !tasks_.empty(); });
      const auto task = std::move(tasks_.front());
      tasks_.pop_front();
      lock.unlock();
      if (task == nullptr) return;
      task();
    }
  }

  std::mutex mutex_;
  std::condition_variable arrived_;
  std::deque<std::function<void()>> tasks_;
  std::thread thread_;
};

/// Lets one thread wait until another has done something.
class Gate {
 public:
  void open() {
    std::lock_guard lock(mutex_);
    isOpen_ = true;
    opened_.notify_one();
  }
  void wait() {
    std::unique_lock lock(mutex_);
    opened_.wait(lock, [this] { return isOpen_; });
    isOpen_ = false;
  }

 private:
  std::mutex mutex_;
  std::condition_variable opened_;
  bool isOpen_ = false;
};

// --- Sync on a free queue ---

void MutexLockUnlock(benchmark::State& state) {
  std::mutex mutex;
  std::size_t count = 0;
  for (auto _ : state) {
    std::lock_guard lock(mutex);
    benchmark::DoNotOptimize(++count);
  }
}
BENCHMARK(MutexLockUnlock);

void QueueSyncFree(benchmark::State& state) {
  const auto queue = kmv::makeSerialQueue("benchmark");
  std::size_t count = 0;
  for (auto _ : state) queue->sync([&] { benchmark::DoNotOptimize(++count); });
}
BENCHMARK(QueueSyncFree);

void HopPostAndWait(benchmark::State& state) {
  HandWrittenQueue queue;
  Gate gate;
  for (auto _ : state) {
    queue.post([&] { gate.open(); });
    gate.wait();
  }
}
BENCHMARK(HopPostAndWait)->UseRealTime();

void QueueAsyncAndWait(benchmark::State& state) {
  const auto queue = kmv::makeSerialQueue("benchmark");
  Gate gate;
  for (auto _ : state) {
    queue->async([&] { gate.open(); });
    gate.wait();
  }
}
BENCHMARK(QueueAsyncAndWait)->UseRealTime();

// --- Two threads that want the same thing ---

void MutexContended(benchmark::State& state) {
  static std::mutex mutex;
  static std::size_t count = 0;
  for (auto _ : state) {
    std::lock_guard lock(mutex);
    benchmark::DoNotOptimize(++count);
  }
}
BENCHMARK(MutexContended)->Threads(2)->UseRealTime();

void QueueSyncContended(benchmark::State& state) {
  static const auto queue = kmv::makeSerialQueue("benchmark");
  static std::size_t count = 0;
  for (auto _ : state) queue->sync([&] { benchmark::DoNotOptimize(++count); });
}
BENCHMARK(QueueSyncContended)->Threads(2)->UseRealTime();

// --- A stream of tasks, from the first post to the end of the last task ---

void HandWrittenStream(benchmark::State& state) {
  HandWrittenQueue queue;
  Gate gate;
  std::size_t count = 0;
  for (auto _ : state) {
    for (std::int64_t i = 0; i < kStreamLength; ++i) queue.post([&] { benchmark::DoNotOptimize(++count); });
    queue.post([&] { gate.open(); });
    gate.wait();
  }
  state.SetItemsProcessed(state.iterations() * kStreamLength);
}
BENCHMARK(HandWrittenStream)->UseRealTime()->Unit(benchmark::kMillisecond);

void QueueStream(benchmark::State& state) {
  const auto queue = kmv::makeSerialQueue("benchmark");
  std::size_t count = 0;
  for (auto _ : state) {
    for (std::int64_t i = 0; i < kStreamLength; ++i) queue->async([&] { benchmark::DoNotOptimize(++count); });
    queue->sync([] {});
  }
  state.SetItemsProcessed(state.iterations() * kStreamLength);
}
BENCHMARK(QueueStream)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
