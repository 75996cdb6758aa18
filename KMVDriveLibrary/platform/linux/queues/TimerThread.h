// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/Queue.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace kmv {

/// Hands tasks to their queues when they are due, on the monotonic clock; those due at the same moment in
/// FIFO order. Its thread is started by the first task and stays, asleep without a timeout when none waits.
///
/// Threads: every member may be called from any thread.
/// Owner:   nobody; never destroyed, like the workers.
class TimerThread {
 public:
  using Clock = std::chrono::steady_clock;
  /// Told when `standIn` is to be called at last, because the system has no thread left.
  using Substitute = std::function<void(Clock::time_point)>;

  static TimerThread& shared();

  /// Hands `task` to `queue` after `delay`; the queue lives until then. Without a queue it runs where the
  /// timers are served.
  void schedule(std::chrono::nanoseconds delay, std::shared_ptr<SerialQueue> queue, SerialQueue::Task task);

  /// True on the thread itself.
  static bool isCurrent();

  void setSubstitute(Substitute substitute);
  /// Starts the thread; where that fails still, serves what is due on the calling thread and returns when to
  /// call again.
  std::optional<Clock::time_point> standIn();

 private:
  struct Timer {
    Clock::time_point due;
    std::uint64_t number;  // of arrival
    std::shared_ptr<SerialQueue> queue;
    SerialQueue::Task task;
  };

  TimerThread() = default;

  static bool isLater(const Timer& left, const Timer& right);
  static void threadBody(void* timers);
  bool startThread();
  void serve();
  void fireFirst() KMV_REQUIRES(mutex_);

  Mutex mutex_;
  ConditionVariable earlierDue_;
  std::vector<Timer> heap_ KMV_GUARDED_BY(mutex_);  // the next one in front
  std::uint64_t arrivals_ KMV_GUARDED_BY(mutex_) = 0;
  bool hasThread_ KMV_GUARDED_BY(mutex_) = false;
  Substitute substitute_ KMV_GUARDED_BY(mutex_);
};

}  // namespace kmv
