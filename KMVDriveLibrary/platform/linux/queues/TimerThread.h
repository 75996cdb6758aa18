// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/Queue.h>

#include <chrono>
#include <cstdint>
#include <memory>
#include <vector>

namespace kmv {

/// Hands tasks to their queues when they are due, on the monotonic clock; those due at the same moment in
/// FIFO order. Its thread exists only while a task waits.
///
/// Threads: every member may be called from any thread.
/// Owner:   nobody; never destroyed, like the workers.
class TimerThread {
 public:
  static TimerThread& shared();

  /// Hands `task` to `queue` after `delay`; the queue lives until then.
  /// Failure: stops the process when the thread cannot be started.
  void schedule(std::chrono::nanoseconds delay, std::shared_ptr<SerialQueue> queue, SerialQueue::Task task);

 private:
  using Clock = std::chrono::steady_clock;
  struct Timer {
    Clock::time_point due;
    std::uint64_t number;  // of arrival
    std::shared_ptr<SerialQueue> queue;
    SerialQueue::Task task;
  };

  TimerThread() = default;

  static bool isLater(const Timer& left, const Timer& right);
  static void threadBody(void* timers);
  void serve();

  Mutex mutex_;
  ConditionVariable earlierDue_;
  std::vector<Timer> heap_ KMV_GUARDED_BY(mutex_);  // the next one in front
  std::uint64_t arrivals_ KMV_GUARDED_BY(mutex_) = 0;
  bool hasThread_ KMV_GUARDED_BY(mutex_) = false;
};

}  // namespace kmv
