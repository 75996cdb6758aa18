// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Mutex.h>

#include <thread>
#include <vector>

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
  /// Failure: a second hold on the same thread, whole or partial, would deadlock sooner or later; it stops the
  /// process with a message.
  /// A unit that the thread took by `wait` is not known as its own: a hold of all units then waits for ever.
  class KMV_EXPORT ExclusiveHold {
   public:
    ExclusiveHold(Semaphore& semaphore, int units);
    ~ExclusiveHold();
    ExclusiveHold(const ExclusiveHold&) = delete;
    ExclusiveHold& operator=(const ExclusiveHold&) = delete;

   private:
    Semaphore& semaphore_;
    int units_;
    std::thread::id holder_;
  };

 private:
  mutable Mutex mutex_;
  ConditionVariable freed_;
  int count_ KMV_GUARDED_BY(mutex_);
  std::vector<std::thread::id> holders_ KMV_GUARDED_BY(mutex_);  // of holds; several when they are partial
};

}  // namespace kmv
