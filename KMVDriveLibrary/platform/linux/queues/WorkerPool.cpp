// SPDX-License-Identifier: MIT
#include "platform/linux/queues/WorkerPool.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "base/Fatal.h"
#include "platform/linux/queues/Threads.h"

namespace kmv {
namespace {

constexpr auto kIdleTime = std::chrono::milliseconds(100);

constinit thread_local bool onWorker = false;
constinit thread_local int waitingScopes = 0;  // of this thread

}  // namespace

WorkerPool& WorkerPool::shared() {
  static auto* pool = new WorkerPool;
  return *pool;
}

void WorkerPool::submit(std::shared_ptr<Work> work) {
  bool starts = false;
  {
    const MutexLock lock(mutex_);
    work_.push_back(std::move(work));
    if (work_.size() <= idle_) {
      workArrived_.notifyOne();
    } else {
      starts = reserveThread();
    }
  }
  if (starts && !startReservedThread()) requireSomebody();
}

/// After a thread could not be started: those that are there take the work over, or those that come back from
/// a volume.
void WorkerPool::requireSomebody() {
  {
    const MutexLock lock(mutex_);
    if (threads_ > waiting_ - waitingForVolumes_ || work_.empty()) return;
  }
  fatal("no worker thread could be started");
}

bool WorkerPool::offer(const std::shared_ptr<Work>& work) {
  {
    const MutexLock lock(mutex_);
    if (work_.size() >= idle_ && !reserveThread()) return false;
    work_.push_back(work);
    if (work_.size() <= idle_) {
      workArrived_.notifyOne();
      return true;
    }
  }
  if (startReservedThread()) return true;
  {
    const MutexLock lock(mutex_);
    const auto waiting = std::find(work_.begin(), work_.end(), work);
    if (waiting == work_.end()) return true;  // somebody has taken it meanwhile
    work_.erase(waiting);
  }
  requireSomebody();  // for work that counted on this thread
  return false;
}

/// Counts a thread that is to be started; false when enough are there.
bool WorkerPool::reserveThread() {
  if (threads_ - waiting_ >= kMaximumActiveWorkers) return false;
  ++threads_;
  return true;
}

/// False when the system has none left.
bool WorkerPool::startReservedThread() {
  if (startDetachedThread("kmv-worker", workerBody, this)) return true;
  const MutexLock lock(mutex_);
  --threads_;
  return false;
}

void WorkerPool::workerBody(void* pool) {
  onWorker = true;
  static_cast<WorkerPool*>(pool)->serve();
}

void WorkerPool::serve() {
  while (const std::shared_ptr<Work> work = nextWork()) work->runOnWorker();
}

/// The next work; null when this worker is to end, after which it must not touch the pool.
std::shared_ptr<Work> WorkerPool::nextWork() {
  MutexLock lock(mutex_);
  ++idle_;
  const auto end = std::chrono::steady_clock::now() + kIdleTime;
  while (work_.empty() && workArrived_.waitUntil(lock, end)) {
  }
  --idle_;
  if (work_.empty()) {
    --threads_;
    return nullptr;
  }
  auto work = std::move(work_.front());
  work_.pop_front();
  return work;
}

WorkerPool::WaitingScope::WaitingScope(WaitsFor what) : isVolume_(what == WaitsFor::volume) {
  if (!onWorker || ++waitingScopes > 1) return;
  WorkerPool& pool = shared();
  bool starts = false;
  {
    const MutexLock lock(pool.mutex_);
    ++pool.waiting_;
    pool.waitingForVolumes_ += isVolume_ ? 1 : 0;
    if (pool.work_.size() > pool.idle_) starts = pool.reserveThread();
  }
  if (starts && !pool.startReservedThread() && !isVolume_) pool.requireSomebody();
}

WorkerPool::WaitingScope::~WaitingScope() {
  if (!onWorker || --waitingScopes > 0) return;
  WorkerPool& pool = shared();
  const MutexLock lock(pool.mutex_);
  --pool.waiting_;
  pool.waitingForVolumes_ -= isVolume_ ? 1 : 0;
}

}  // namespace kmv
