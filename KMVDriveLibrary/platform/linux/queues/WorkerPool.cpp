// SPDX-License-Identifier: MIT
#include "platform/linux/queues/WorkerPool.h"

#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <system_error>
#include <thread>
#include <utility>

#include "base/Fatal.h"

namespace kmv {
namespace {

constexpr auto kIdleTime = std::chrono::milliseconds(100);

constinit thread_local bool onWorker = false;
constinit thread_local int waitingScopes = 0;  // of this thread

/// Every signal but those that a thread raises by a fault of its own: a host's crash handler must see these.
sigset_t foreignSignals() {
  sigset_t signals;
  sigfillset(&signals);
  for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
    sigdelset(&signals, fault);
  return signals;
}

}  // namespace

bool startDetachedThread(const char* name, void (*body)(void*), void* argument) {
  // A new thread inherits the mask, so no signal can reach it before it could block them itself.
  const sigset_t blocked = foreignSignals();
  sigset_t before;
  pthread_sigmask(SIG_BLOCK, &blocked, &before);
  bool started = true;
  try {
    std::thread([name, body, argument] {
      pthread_setname_np(pthread_self(), name);
      body(argument);
    }).detach();
  } catch (const std::system_error&) {
    started = false;
  }
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return started;
}

WorkerPool& WorkerPool::shared() {
  static auto* pool = new WorkerPool;
  return *pool;
}

void WorkerPool::submit(std::shared_ptr<Work> work) {
  bool starts = false;
  {
    std::lock_guard lock(mutex_);
    work_.push_back(std::move(work));
    if (work_.size() <= idle_) {
      workArrived_.notify_one();
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
    const std::lock_guard lock(mutex_);
    if (threads_ > waiting_ - waitingForVolumes_ || work_.empty()) return;
  }
  fatal("no worker thread could be started");
}

bool WorkerPool::offer(const std::shared_ptr<Work>& work) {
  {
    const std::lock_guard lock(mutex_);
    if (work_.size() >= idle_ && !reserveThread()) return false;
    work_.push_back(work);
    if (work_.size() <= idle_) {
      workArrived_.notify_one();
      return true;
    }
  }
  if (startReservedThread()) return true;
  {
    const std::lock_guard lock(mutex_);
    const auto waiting = std::find(work_.begin(), work_.end(), work);
    if (waiting == work_.end()) return true;  // somebody has taken it meanwhile
    work_.erase(waiting);
  }
  requireSomebody();  // for work that counted on this thread
  return false;
}

/// Counts a thread that is to be started; false when enough are there. REQUIRES: `mutex_` is held.
bool WorkerPool::reserveThread() {
  if (threads_ - waiting_ >= kMaximumActiveWorkers) return false;
  ++threads_;
  return true;
}

/// False when the system has none left.
bool WorkerPool::startReservedThread() {
  if (startDetachedThread("kmv-worker", workerBody, this)) return true;
  const std::lock_guard lock(mutex_);
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
  std::unique_lock lock(mutex_);
  ++idle_;
  const bool found = workArrived_.wait_for(lock, kIdleTime, [&] { return !work_.empty(); });
  --idle_;
  if (!found) {
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
    std::lock_guard lock(pool.mutex_);
    ++pool.waiting_;
    pool.waitingForVolumes_ += isVolume_ ? 1 : 0;
    if (pool.work_.size() > pool.idle_) starts = pool.reserveThread();
  }
  if (starts && !pool.startReservedThread() && !isVolume_) pool.requireSomebody();
}

WorkerPool::WaitingScope::~WaitingScope() {
  if (!onWorker || --waitingScopes > 0) return;
  WorkerPool& pool = shared();
  std::lock_guard lock(pool.mutex_);
  --pool.waiting_;
  pool.waitingForVolumes_ -= isVolume_ ? 1 : 0;
}

}  // namespace kmv
