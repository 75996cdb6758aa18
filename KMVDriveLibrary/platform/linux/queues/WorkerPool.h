// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>

#include <cstddef>
#include <deque>
#include <memory>

namespace kmv {

/// Something that a worker thread runs once per submission.
class Work {
 public:
  virtual ~Work() = default;
  virtual void runOnWorker() = 0;
};

/// The process's worker threads. A thread is started when work finds none idle, and ends after idling for a
/// tenth of a second, so that a process without work has no thread of ours and is not woken.
///
/// Threads: every member may be called from any thread.
/// Owner:   nobody; the pool is never destroyed, since tasks may run while the process exits.
class WorkerPool {
 public:
  /// Workers that run at a time. Those that wait for a queue are not counted: what they wait for may need a
  /// worker itself.
  static constexpr std::size_t kMaximumActiveWorkers = 64;

  static WorkerPool& shared();

  /// Runs `work` as soon as a worker is there; work starts in the order of submission.
  /// Failure: stops the process when not a single worker can be started.
  void submit(std::shared_ptr<Work> work);

  /// The same for work that need not be done: false, and it will not run, when no thread can be had for it.
  bool offer(const std::shared_ptr<Work>& work);

  /// Tells the pool, while it lives, that the calling thread waits for a queue or a volume, or may at any
  /// moment: it does not count as active. Scopes may be nested. Costs nothing on threads that are no workers.
  ///
  /// A wait for a queue needs the other workers; when there is none and none can be started, the process
  /// stops with a message, since it could never end. A wait for a volume ends by itself.
  enum class WaitsFor { queue, volume };
  class WaitingScope {
   public:
    explicit WaitingScope(WaitsFor what = WaitsFor::queue);
    ~WaitingScope();
    WaitingScope(const WaitingScope&) = delete;
    WaitingScope& operator=(const WaitingScope&) = delete;

   private:
    bool isVolume_;
  };

 private:
  WorkerPool() = default;

  static void workerBody(void* pool);
  void serve();
  std::shared_ptr<Work> nextWork();
  bool reserveThread() KMV_REQUIRES(mutex_);
  bool startReservedThread();
  void requireSomebody();

  Mutex mutex_;
  ConditionVariable workArrived_;
  std::deque<std::shared_ptr<Work>> work_ KMV_GUARDED_BY(mutex_);
  std::size_t threads_ KMV_GUARDED_BY(mutex_) = 0;
  std::size_t idle_ KMV_GUARDED_BY(mutex_) = 0;
  std::size_t waiting_ KMV_GUARDED_BY(mutex_) = 0;
  std::size_t waitingForVolumes_ KMV_GUARDED_BY(mutex_) = 0;  // of them
};

}  // namespace kmv
