// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/Queue.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/queues/TimerThread.h"

namespace kmv {

/// The main queue of a Linux process; see Queues.h.
class LinuxMainQueue final : public MainQueue, public std::enable_shared_from_this<LinuxMainQueue> {
 public:
  LinuxMainQueue() = default;
  ~LinuxMainQueue() override;
  LinuxMainQueue(const LinuxMainQueue&) = delete;
  LinuxMainQueue& operator=(const LinuxMainQueue&) = delete;

  const std::string& label() const override { return label_; }
  void async(Task task) override;
  void sync(TaskReference task) override;
  void after(std::chrono::nanoseconds delay, Task task) override;
  bool isCurrent() const override;

  void run() override;
  void stop() override;

  /// Inside a task of this queue (a nested loop of the host) nothing runs, and the descriptor stays quiet
  /// until the task ends.
  std::size_t drain() override;
  int fileDescriptor() override;
  std::size_t waitingTasks() const override;

  /// The main thread is to serve the timers from `time` on, until they have a thread of their own; the
  /// descriptor is readable until then.
  void serveTimersAt(TimerThread::Clock::time_point time);

 private:
  /// A caller of `sync`, on the stack of its thread; guarded by `mutex_`.
  struct Waiter {
    TaskReference task;
    ConditionVariable finished{};
    bool isFinished = false;
    std::exception_ptr exception = nullptr;
  };
  struct Entry {
    Task task;
    Waiter* waiter = nullptr;
  };

  void append(Entry entry);
  void serveTimersIfDue() KMV_REQUIRES(mutex_);
  void takeMainThread() KMV_REQUIRES(mutex_);
  void leaveMainThread() KMV_REQUIRES(mutex_);
  void runNext() KMV_REQUIRES(mutex_);
  void runEntry(Entry& entry);
  void makeReadable() KMV_REQUIRES(mutex_);
  void makeUnreadable() KMV_REQUIRES(mutex_);

  const std::string label_ = "main";
  mutable Mutex mutex_;
  ConditionVariable wake_;  // of `run`
  std::deque<Entry> entries_ KMV_GUARDED_BY(mutex_);
  bool hasMainThread_ KMV_GUARDED_BY(mutex_) = false;  // someone runs or drains
  bool stopRequested_ KMV_GUARDED_BY(mutex_) = false;
  int descriptor_ KMV_GUARDED_BY(mutex_) = -1;
  bool isReadable_ KMV_GUARDED_BY(mutex_) = false;
  std::optional<TimerThread::Clock::time_point> timersDue_ KMV_GUARDED_BY(mutex_);
};

}  // namespace kmv
