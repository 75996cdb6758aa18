// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace kmv {

/// A counting semaphore whose waiters may take several units as one step.
/// Threads: every member may be called from any thread.
class KMV_EXPORT Semaphore {
 public:
  explicit Semaphore(int count);
  Semaphore(const Semaphore&) = delete;
  Semaphore& operator=(const Semaphore&) = delete;

  /// Takes one unit, waiting for it without limit.
  void wait();
  /// Gives one unit back.
  void signal();
  /// The units that are free now; only a hint when other threads use the semaphore.
  int count() const;

  /// Takes `units` units as one step and gives them back at the end of its life. All units come at once: two
  /// writers that collected theirs one by one could each hold half and wait for ever. Failure: a second
  /// exclusive hold on the same thread could never be had; it stops the process with a message.
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
  mutable std::mutex mutex_;
  std::condition_variable freed_;
  int count_;
  std::thread::id holder_;
};

}  // namespace kmv
