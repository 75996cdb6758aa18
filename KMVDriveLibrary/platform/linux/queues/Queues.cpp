// SPDX-License-Identifier: MIT
#include "platform/linux/queues/Queues.h"

#include <KMVDriveLibrary/Mutex.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <utility>
#include <vector>

#include "base/RunOrStop.h"
#include "platform/linux/queues/MainQueue.h"
#include "platform/linux/queues/QueueFrame.h"
#include "platform/linux/queues/Threads.h"
#include "platform/linux/queues/TimerThread.h"
#include "platform/linux/queues/WorkerPool.h"

namespace kmv {

namespace {

/// How often a thread spins before it goes to sleep: for about as long as falling asleep and being woken
/// takes.
constexpr int kLooksBeforeSleep = 400;

void pauseProcessor() {
#if defined(__x86_64__) || defined(__i386__)
  __builtin_ia32_pause();
#elif defined(__aarch64__)
  __asm__ volatile("yield");
#endif
}

/// Spins for a mutex that is held only briefly; sleeping for it would cost more than the work under it.
void lockBriefly(Mutex& mutex) KMV_ACQUIRE(mutex) {
  for (int looks = 0; looks <= kLooksBeforeSleep; ++looks) {
    if (mutex.try_lock()) return;
    pauseProcessor();
  }
  mutex.lock();
}

/// The state word says who may touch what. `kBusy`: some thread owns the queue's turn; it alone uses
/// `batch_`. `kPending`: the owner must not just clear the word when it ends, since entries wait. A free
/// queue is taken and left with one exchange each; everything else goes through `mutex_`.
class LinuxSerialQueue final : public SerialQueue,
                               public Work,
                               public std::enable_shared_from_this<LinuxSerialQueue> {
 public:
  LinuxSerialQueue(std::string label, WorkerPool::Lane lane) : label_(std::move(label)), lane_(lane) {}

  const std::string& label() const override { return label_; }
  void async(Task task) override;
  void sync(TaskReference task) override;
  void after(std::chrono::nanoseconds delay, Task task) override;
  bool isCurrent() const override { return QueueFrame::holds(*this); }

  void runOnWorker() override;

 private:
  static constexpr std::uint32_t kFree = 0;
  static constexpr std::uint32_t kBusy = 1;
  static constexpr std::uint32_t kPending = 2;
  static constexpr std::size_t kBlockLength = 256;

  /// A caller of `sync` in the line, on the stack of its thread; guarded by `mutex_`.
  struct Waiter {
    ConditionVariable turn;
    bool hasTurn = false;
  };
  /// A task, or a waiter.
  struct Entry {
    Entry(Task&& t, Waiter* w) : task(std::move(t)), waiter(w) {}
    Task task;
    Waiter* waiter;
  };
  /// A FIFO in blocks, so that a long one grows without moving what it holds. The first block stays when it
  /// is empty.
  using Line = std::vector<std::vector<Entry>>;

  /// The calling thread's turn: the frame leaves first, then the queue.
  class Turn {
   public:
    explicit Turn(LinuxSerialQueue& queue) : release_{queue}, frame_(queue) {}

   private:
    struct Release {
      LinuxSerialQueue& queue;
      ~Release() { queue.leave(); }
    };
    Release release_;
    QueueFrame frame_;
  };

  bool tryTakeTurn();
  void waitForTurn();
  void waitFor(Waiter& waiter);
  void leave();
  void passOn();
  bool append(Task&& task, Waiter* waiter) KMV_REQUIRES(mutex_);
  Entry* peek();
  Entry* peekIntoIncoming();
  void giveTurn(Waiter& waiter);

  const std::string label_;
  const WorkerPool::Lane lane_;
  std::atomic<std::uint32_t> state_{kFree};
  Mutex mutex_;
  Line incoming_ KMV_GUARDED_BY(mutex_);  // holds entries only while the state is busy and pending
  Line batch_;                            // of the owner of the turn
  std::size_t nextBlock_ = 0;             // into `batch_`
  std::size_t next_ = 0;                  // into that block
};

void LinuxSerialQueue::async(Task task) {
  refuseInForkedChild("a task was queued");
  bool takesTurn = false;
  {
    lockBriefly(mutex_);
    const MutexLock lock(mutex_, std::adopt_lock);
    if (!append(std::move(task), nullptr)) return;
    takesTurn = (state_.fetch_or(kBusy | kPending, std::memory_order_acq_rel) & kBusy) == 0;
  }
  if (takesTurn) WorkerPool::shared().submit(shared_from_this(), lane_);
}

/// Adds to `incoming_`; true when the entry is its first.
bool LinuxSerialQueue::append(Task&& task, Waiter* waiter) {
  if (incoming_.empty()) incoming_.emplace_back();
  if (incoming_.back().size() == kBlockLength) incoming_.emplace_back().reserve(kBlockLength);
  incoming_.back().emplace_back(std::move(task), waiter);
  return incoming_.front().size() == 1;
}

void LinuxSerialQueue::sync(TaskReference task) {
  if (!tryTakeTurn()) waitForTurn();
  Turn turn(*this);
  task();
}

bool LinuxSerialQueue::tryTakeTurn() {
  std::uint32_t expected = kFree;
  return state_.compare_exchange_strong(expected, kBusy, std::memory_order_acquire,
                                        std::memory_order_relaxed);
}

void LinuxSerialQueue::after(std::chrono::nanoseconds delay, Task task) {
  if (delay <= std::chrono::nanoseconds::zero()) return async(std::move(task));
  TimerThread::shared().schedule(delay, shared_from_this(), std::move(task));
}

void LinuxSerialQueue::waitForTurn() {
  if (isCurrent()) QueueFrame::stopForReentry("sync", *this);
  // Whoever is inside `sync` without a line behind it is gone soon.
  for (int looks = 0; looks < kLooksBeforeSleep && (state_.load(std::memory_order_relaxed) & kPending) == 0;
       ++looks) {
    if (tryTakeTurn()) return;
    pauseProcessor();
  }
  Waiter waiter;
  MutexLock lock(mutex_);
  if ((state_.fetch_or(kBusy | kPending, std::memory_order_acq_rel) & kBusy) == 0)
    return;  // left in the meantime
  append(nullptr, &waiter);
  lock.unlock();
  waitFor(waiter);
}

/// While threads are lacking, nobody else may come to the tasks before this one.
void LinuxSerialQueue::waitFor(Waiter& waiter) {
  const QueueWait wait(*this);
  WorkerPool& pool = WorkerPool::shared();
  const WorkerPool::WaitingScope waiting;
  MutexLock lock(mutex_);
  while (!waiter.hasTurn) {
    if (!pool.lacksThreads()) {
      waiter.turn.wait(lock);
    } else if (!waiter.turn.waitFor(lock, WorkerPool::kTimeBetweenAttempts)) {
      lock.unlock();
      if (pool.takeOver(*this)) {
        const QueueFrame::Boundary boundary;
        runOnWorker();
      }
      lock.lock();
    }
  }
}

void LinuxSerialQueue::leave() {
  std::uint32_t expected = kBusy;
  if (!state_.compare_exchange_strong(expected, kFree, std::memory_order_release, std::memory_order_relaxed))
    passOn();
}

/// Gives the turn to the first in line, or to nobody. The caller no longer owns it.
void LinuxSerialQueue::passOn() {
  const Entry* entry = peek();
  if (entry == nullptr) return;
  if (entry->waiter == nullptr) return WorkerPool::shared().submit(shared_from_this(), lane_);
  ++next_;
  giveTurn(*entry->waiter);
}

void LinuxSerialQueue::runOnWorker() {
  while (Entry* entry = peek()) {
    ++next_;
    if (entry->waiter != nullptr) return giveTurn(*entry->waiter);
    QueueFrame frame(*this);
    runOrStop(entry->task, label_);
    entry->task = nullptr;  // what it captured dies within the turn
  }
}

/// The first entry in line; null when nothing waits, and then the queue was left. REQUIRES: the turn.
LinuxSerialQueue::Entry* LinuxSerialQueue::peek() {
  if (nextBlock_ < batch_.size()) {
    if (next_ < batch_[nextBlock_].size()) return &batch_[nextBlock_][next_];
    next_ = 0;
    if (++nextBlock_ < batch_.size()) {
      batch_[nextBlock_ - 1] = {};
      return &batch_[nextBlock_].front();
    }
  }
  return peekIntoIncoming();
}

LinuxSerialQueue::Entry* LinuxSerialQueue::peekIntoIncoming() {
  if (batch_.size() > 1) {
    batch_.front() = std::move(batch_.back());
    batch_.resize(1);
  }
  if (!batch_.empty()) batch_.front().clear();
  nextBlock_ = 0;
  lockBriefly(mutex_);
  const MutexLock lock(mutex_, std::adopt_lock);
  if (incoming_.empty() || incoming_.front().empty()) {
    state_.store(kFree, std::memory_order_release);
    return nullptr;
  }
  batch_.swap(incoming_);
  return &batch_.front().front();
}

void LinuxSerialQueue::giveTurn(Waiter& waiter) {
  const MutexLock lock(mutex_);
  waiter.hasTurn = true;
  waiter.turn.notifyOne();  // under the lock: the waiter dies as soon as it gets it
}

/// Each task is work of its own for the pool.
class LinuxConcurrentQueue final : public ConcurrentQueue {
 public:
  LinuxConcurrentQueue(std::string label, WorkerPool::Lane lane) : label_(std::move(label)), lane_(lane) {}
  const std::string& label() const override { return label_; }
  void async(SerialQueue::Task task) override {
    struct TaskAsWork final : Work {
      TaskAsWork(SerialQueue::Task&& t, std::string l) : task(std::move(t)), label(std::move(l)) {}
      void runOnWorker() override { runOrStop(task, label); }
      SerialQueue::Task task;
      std::string label;
    };
    WorkerPool::shared().submit(std::make_shared<TaskAsWork>(std::move(task), label_), lane_);
  }

 private:
  const std::string label_;
  const WorkerPool::Lane lane_;
};

WorkerPool::Lane laneFor(QualityOfService quality) {
  const bool isCore = quality == QualityOfService::core || quality == QualityOfService::userInteractive;
  return isCore ? WorkerPool::Lane::core : WorkerPool::Lane::shared;
}

}  // namespace

LinuxQueueFactory::LinuxQueueFactory() : mainQueue_(std::make_shared<LinuxMainQueue>()) {
  TimerThread::shared().setSubstitute([main = std::weak_ptr(mainQueue_)](auto time) {
    if (const auto queue = main.lock()) queue->serveTimersAt(time);
  });
}

LinuxQueueFactory::~LinuxQueueFactory() = default;

std::shared_ptr<SerialQueue> LinuxQueueFactory::makeSerialQueue(std::string label, QualityOfService quality) {
  return std::make_shared<LinuxSerialQueue>(std::move(label), laneFor(quality));
}

std::shared_ptr<ConcurrentQueue> LinuxQueueFactory::makeConcurrentQueue(std::string label,
                                                                        QualityOfService quality) {
  return std::make_shared<LinuxConcurrentQueue>(std::move(label), laneFor(quality));
}

MainQueue& LinuxQueueFactory::mainQueue() {
  return *mainQueue_;
}

}  // namespace kmv
