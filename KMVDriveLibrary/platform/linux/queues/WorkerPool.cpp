// SPDX-License-Identifier: MIT
#include "platform/linux/queues/WorkerPool.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "platform/linux/queues/Threads.h"
#include "platform/linux/queues/TimerThread.h"

namespace kmv {
namespace {

/// Longer than the pauses of periodic work, which would start a thread each time otherwise.
constexpr auto kIdleTime = std::chrono::seconds(2);

constinit thread_local int waitingScopes = 0;  // of this thread

}  // namespace

thread_local constinit WorkerPool::Line* WorkerPool::ownLine_ = nullptr;

WorkerPool& WorkerPool::shared() {
  static auto* pool = new WorkerPool;
  return *pool;
}

/// How much of the line may be taken now.
std::size_t WorkerPool::Line::startable() const {
  const std::size_t active =
      running - waitingForQueues - std::min(waitingForVolumes, kMostUncountedAtVolumes);
  return active >= mostActive ? 0 : std::min(works.size(), mostActive - active);
}

std::shared_ptr<Work> WorkerPool::Line::takeFirst() {
  auto work = std::move(works.front());
  works.pop_front();
  return work;
}

void WorkerPool::submit(std::shared_ptr<Work> work, Lane lane) {
  refuseInForkedChild("a task was queued");
  {
    const MutexLock lock(mutex_);
    (lane == Lane::core ? core_ : shared_).works.push_back(std::move(work));
  }
  if (!provideWorker()) retryLater();
}

bool WorkerPool::offer(const std::shared_ptr<Work>& work) {
  {
    const MutexLock lock(mutex_);
    shared_.works.push_back(work);
    if (shared_.startable() < shared_.works.size()) {
      shared_.works.pop_back();
      return false;
    }
  }
  if (provideWorker()) return true;
  bool wasWaiting = false;
  {
    const MutexLock lock(mutex_);
    wasWaiting = remove(*work);
  }
  retryLater();  // for work that counted on this thread
  return !wasWaiting;
}

bool WorkerPool::needsWorkers() const {
  return core_.startable() + shared_.startable() > idle_;
}

/// Sees to it that there are as many idle workers as work may be taken; false when the system has no thread
/// left.
bool WorkerPool::provideWorker() {
  bool needsThread = false, needsWake = false;
  {
    const MutexLock lock(mutex_);
    needsThread = needsWorkers();
    needsWake = !needsThread && startableLine() != nullptr;
    if (needsThread) ++idle_;
  }
  if (needsWake) workArrived_.notifyOne();  // with the mutex released: the woken thread needs it
  if (!needsThread) return true;
  if (startDetachedThread("kmv-worker", workerBody, this)) return true;
  const MutexLock lock(mutex_);
  --idle_;
  return false;
}

void WorkerPool::retryLater() {
  {
    const MutexLock lock(mutex_);
    if (lacksThreads_ || !needsWorkers()) return;
    lacksThreads_ = true;
  }
  TimerThread::shared().schedule(kTimeBetweenAttempts, nullptr, [this] { retry(); });
}

void WorkerPool::retry() {
  while (provideWorker()) {
    const MutexLock lock(mutex_);
    if (needsWorkers()) continue;
    lacksThreads_ = false;
    return;
  }
  const bool stoodIn = TimerThread::isCurrent() && standIn();
  TimerThread::shared().schedule(stoodIn ? std::chrono::milliseconds(0) : kTimeBetweenAttempts, nullptr,
                                 [this] { retry(); });
}

/// Runs the first work on the calling thread when no worker would come to it; false when there is none.
bool WorkerPool::standIn() {
  std::shared_ptr<Work> work;
  {
    const MutexLock lock(mutex_);
    Line* const line = everybodyWaits() ? startableLine() : nullptr;
    if (line == nullptr) return false;
    work = line->takeFirst();
  }
  work->runOnWorker();
  return true;
}

bool WorkerPool::everybodyWaits() const {
  const auto active = [](const Line& line) {
    return line.running - line.waitingForQueues - line.waitingForVolumes;
  };
  return idle_ + active(core_) + active(shared_) == 0;
}

bool WorkerPool::takeOver(const Work& work) {
  if (provideWorker()) return false;
  const MutexLock lock(mutex_);
  return remove(work);
}

bool WorkerPool::remove(const Work& work) {
  for (Line* const line : {&core_, &shared_}) {
    const auto found = std::find_if(line->works.begin(), line->works.end(),
                                    [&](const auto& waiting) { return waiting.get() == &work; });
    if (found == line->works.end()) continue;
    line->works.erase(found);
    return true;
  }
  return false;
}

void WorkerPool::workerBody(void* pool) {
  static_cast<WorkerPool*>(pool)->serve();
}

void WorkerPool::serve() {
  MutexLock lock(mutex_);
  while (Line* const line = waitForWork(lock)) {
    std::shared_ptr<Work> work = line->takeFirst();
    --idle_;
    ++line->running;
    lock.unlock();
    ownLine_ = line;
    work->runOnWorker();
    work.reset();  // outside the lock: it may be the last reference
    lock.lock();
    --line->running;
    ++idle_;
  }
  --idle_;
}

WorkerPool::Line* WorkerPool::startableLine() {
  if (core_.startable() > 0) return &core_;
  return shared_.startable() > 0 ? &shared_ : nullptr;
}

/// The line to take the next work from; null when this worker is to end.
WorkerPool::Line* WorkerPool::waitForWork(MutexLock& lock) {
  const auto end = std::chrono::steady_clock::now() + kIdleTime;
  while (true) {
    if (Line* const line = startableLine()) return line;
    if (idle_ == 1) {
      workArrived_.wait(lock);
    } else if (!workArrived_.waitUntil(lock, end) && idle_ > 1 && startableLine() == nullptr) {
      return nullptr;
    }
  }
}

WorkerPool::WaitingScope::WaitingScope(WaitsFor what) : isVolume_(what == WaitsFor::volume) {
  if (ownLine_ == nullptr || ++waitingScopes > 1) return;
  WorkerPool& pool = shared();
  {
    const MutexLock lock(pool.mutex_);
    ++(isVolume_ ? ownLine_->waitingForVolumes : ownLine_->waitingForQueues);
  }
  if (!pool.provideWorker()) pool.retryLater();
}

WorkerPool::WaitingScope::~WaitingScope() {
  if (ownLine_ == nullptr || --waitingScopes > 0) return;
  const MutexLock lock(shared().mutex_);
  --(isVolume_ ? ownLine_->waitingForVolumes : ownLine_->waitingForQueues);
}

}  // namespace kmv
