// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Mutex.h>

#include <thread>

namespace kmv {

/// A counting semaphore whose waiters may take several units atomically.
/// Threads: every member may be called from any thread.
class KMV_EXPORT Semaphore {
 public:
  explicit Semaphore(int count);
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  /// Takes one unit; blocks without a time limit.
  void wait();
  /// Gives one unit back.
  void signal();
  /// The free units; only a hint, since other threads may take them at any time.
  int count() const;

  /// Takes `units` units atomically and gives them back in its destructor.
  /// Not one by one: two writers could each hold half and deadlock.
  /// Failure: a second exclusive hold on the same thread would deadlock; it stops the process with a message.
  class KMV_EXPORT ExclusiveHold {
   public:
    ExclusiveHold(Semaphore& semaphore, int units);
    ~ExclusiveHold();
    ExclusiveHold(const ExclusiveHold&) = delete;
    ExclusiveHold& operator=(const ExclusiveHold&) = delete;

   private:
    Semaphore& semaphore_;
    int units_;
  };

 private:
  mutable Mutex mutex_;
  ConditionVariable freed_;
  int count_ KMV_GUARDED_BY(mutex_);
  std::thread::id holder_ KMV_GUARDED_BY(mutex_);  // of the exclusive hold
};

}  // namespace kmv
