// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/Queue.h>

#include <chrono>
#include <cstddef>
#include <deque>
#include <exception>
#include <memory>
#include <string>

#include "platform/posix/FileDescriptor.h"

namespace kmv::macos {

/// The process's main queue: a line of tasks of ours, and for each of them a place in the platform's main
/// queue. When a place's turn comes, the oldest task runs. So tasks take turns with what a host posts there by
/// other means, a host with a run loop does nothing for it, and `run`, `stop` and `drain` are exact all the
/// same.
class MacMainQueue final : public MainQueue, public std::enable_shared_from_this<MacMainQueue> {
 public:
  MacMainQueue() = default;

  const std::string& label() const override { return label_; }
  void async(Task task) override;
  /// Stops the process on the main thread, also outside tasks: only that thread could run the task.
  void sync(TaskReference task) override;
  /// The delay does not wait for the main queue, which a process may never run but drain.
  void after(std::chrono::nanoseconds delay, Task task) override;
  /// Not in what a host posts to the platform's main queue by other means.
  bool isCurrent() const override;

  void run() override;
  void stop() override;
  std::size_t drain() override;
  /// From the first call on no more places are taken: they would pile up in a process that never runs its
  /// main queue.
  int fileDescriptor() override;
  std::size_t waitingTasks() const override;

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
  struct Delayed;
  /// What the main thread is inside of.
  enum class Service { none, drain, run };

  void append(Entry entry);
  void takePlaces() KMV_REQUIRES(mutex_);
  void takeTurn();
  static void wakeRunLoop();
  bool takesStop();
  bool runNextWithoutPlace();
  void runNext() KMV_REQUIRES(mutex_);
  void runEntry(Entry& entry);
  void beginService(Service service) KMV_REQUIRES(mutex_);
  void endService() KMV_REQUIRES(mutex_);
  void makeReadable() KMV_REQUIRES(mutex_);
  void makeUnreadable() KMV_REQUIRES(mutex_);

  const std::string label_ = "main";
  mutable Mutex mutex_;
  std::deque<Entry> entries_ KMV_GUARDED_BY(mutex_);
  std::size_t places_ KMV_GUARDED_BY(mutex_) = 0;  // whose turn has not come
  Service service_ KMV_GUARDED_BY(mutex_) = Service::none;
  bool isStopRequested_ KMV_GUARDED_BY(mutex_) = false;
  FileDescriptor readEnd_ KMV_GUARDED_BY(mutex_);
  FileDescriptor writeEnd_ KMV_GUARDED_BY(mutex_);
  bool isReadable_ KMV_GUARDED_BY(mutex_) = false;
};

}  // namespace kmv::macos
