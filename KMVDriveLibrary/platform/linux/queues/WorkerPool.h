// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>

#include <atomic>
#include <chrono>
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

/// The process's worker threads. A thread is started when work finds none idle, and ends after idling for some
/// seconds; the last one stays, asleep without a timeout, so that no event needs a thread that a moment of
/// shortage would not give.
///
/// Threads:  every member may be called from any thread.
/// Owner:    nobody; the pool is never destroyed, since tasks may run while the process exits.
/// Shortage: work that no thread can be had for waits for those that are there; starting one is retried, and
///           when all of them wait themselves the timer thread runs it.
class WorkerPool {
 public:
  /// Core work is never kept waiting by shared work, however much of that waits for a volume.
  enum class Lane { core, shared };

  /// Active workers at a time, in each lane.
  static constexpr std::size_t kMostActive = 64;
  static constexpr std::size_t kMostActiveOnCore = 16;
  /// So many that wait for a volume are not counted as active, in each lane. Those that wait for a queue never
  /// are: what they wait for may need a worker itself.
  static constexpr std::size_t kMostUncountedAtVolumes = 64;
  static constexpr std::chrono::milliseconds kTimeBetweenAttempts{50};

  static WorkerPool& shared();

  /// Runs `work` as soon as a worker is there; work starts in the order of submission within its lane.
  void submit(std::shared_ptr<Work> work, Lane lane = Lane::shared);

  /// The same for shared work that need not be done: false, and it will not run, when no thread can be had.
  bool offer(const std::shared_ptr<Work>& work);

  /// True from a failure to start a thread until there are enough again.
  bool lacksThreads() const { return lacksThreads_.load(std::memory_order_relaxed); }
  /// While threads are lacking: true when `work` waited for one, and the caller now has to run it instead.
  bool takeOver(const Work& work);

  /// Tells the pool, while it lives, that the calling thread waits for a queue or a volume, or may at any
  /// moment. Scopes may be nested. Costs nothing on threads that are no workers.
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
  struct Line {
    explicit Line(std::size_t most) : mostActive(most) {}
    std::size_t startable() const;
    std::shared_ptr<Work> takeFirst();

    const std::size_t mostActive;
    std::deque<std::shared_ptr<Work>> works{};
    std::size_t running = 0;
    std::size_t waitingForQueues = 0;   // of those that run
    std::size_t waitingForVolumes = 0;  // the same
  };

  WorkerPool() = default;

  static void workerBody(void* pool);
  void serve();
  Line* waitForWork(MutexLock& lock) KMV_REQUIRES(mutex_);
  Line* startableLine() KMV_REQUIRES(mutex_);
  bool needsWorkers() const KMV_REQUIRES(mutex_);
  bool everybodyWaits() const KMV_REQUIRES(mutex_);
  bool remove(const Work& work) KMV_REQUIRES(mutex_);
  bool provideWorker();
  void retryLater();
  void retry();
  bool standIn();

  static thread_local constinit Line* ownLine_;  // of the work that this worker runs

  Mutex mutex_;
  ConditionVariable workArrived_;
  Line core_ KMV_GUARDED_BY(mutex_){kMostActiveOnCore};
  Line shared_ KMV_GUARDED_BY(mutex_){kMostActive};
  std::size_t idle_ KMV_GUARDED_BY(mutex_) = 0;  // those being started too
  std::atomic<bool> lacksThreads_ = false;       // written under the mutex
};

/// A task that waits for a volume takes nobody's turn.
struct VolumeWait : WorkerPool::WaitingScope {
  VolumeWait() : WaitingScope(WorkerPool::WaitsFor::volume) {}
};

}  // namespace kmv
