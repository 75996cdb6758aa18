// SPDX-License-Identifier: MIT
#include "platform/linux/queues/MainQueue.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cstdint>
#include <utility>

#include "base/Fatal.h"
#include "base/RunOrStop.h"
#include "platform/linux/queues/QueueFrame.h"
#include "platform/linux/queues/Threads.h"
#include "platform/linux/queues/WorkerPool.h"

namespace kmv {

LinuxMainQueue::~LinuxMainQueue() {
  if (descriptor_ >= 0) ::close(descriptor_);
}

void LinuxMainQueue::async(Task task) {
  append({std::move(task), nullptr});
}

/// The descriptor is kept readable exactly while tasks are pending and nobody drains them: one write a batch.
void LinuxMainQueue::append(Entry entry) {
  refuseInForkedChild("a task was queued");
  {
    const MutexLock lock(mutex_);
    entries_.push_back(std::move(entry));
    if (entries_.size() > 1) return;
    if (!hasMainThread_) return makeReadable();
  }
  wake_.notifyOne();  // with the mutex released, or the woken thread would wait for it at once
}

void LinuxMainQueue::sync(TaskReference task) {
  if (isCurrent()) QueueFrame::stopForReentry("sync", *this);
  Waiter waiter{task};
  append({nullptr, &waiter});
  {
    const QueueWait wait(*this);
    const WorkerPool::WaitingScope waiting;
    MutexLock lock(mutex_);
    while (!waiter.isFinished) waiter.finished.wait(lock);
  }
  if (waiter.exception != nullptr) std::rethrow_exception(std::move(waiter.exception));
}

void LinuxMainQueue::after(std::chrono::nanoseconds delay, Task task) {
  if (delay <= std::chrono::nanoseconds::zero()) return async(std::move(task));
  TimerThread::shared().schedule(delay, shared_from_this(), std::move(task));
}

bool LinuxMainQueue::isCurrent() const {
  return QueueFrame::holds(*this);
}

void LinuxMainQueue::run() {
  if (isCurrent()) QueueFrame::stopForReentry("run", *this);
  refuseInForkedChild("the main queue was run");
  MutexLock lock(mutex_);
  takeMainThread();
  while (true) {
    while (!stopRequested_ && entries_.empty()) {
      if (const auto due = timersDue_) {
        wake_.waitUntil(lock, *due);
      } else {
        wake_.wait(lock);
      }
      serveTimersIfDue();
    }
    if (std::exchange(stopRequested_, false)) break;
    runNext();
  }
  leaveMainThread();
}

void LinuxMainQueue::stop() {
  const MutexLock lock(mutex_);
  stopRequested_ = true;
  wake_.notifyOne();
}

std::size_t LinuxMainQueue::drain() {
  if (isCurrent()) return 0;
  refuseInForkedChild("the main queue was drained");
  MutexLock lock(mutex_);
  takeMainThread();
  serveTimersIfDue();
  const std::size_t count = entries_.size();
  for (std::size_t i = 0; i < count; ++i) runNext();
  leaveMainThread();
  return count;
}

int LinuxMainQueue::fileDescriptor() {
  MutexLock lock(mutex_);
  if (descriptor_ >= 0) return descriptor_;
  descriptor_ = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if ((!entries_.empty() || timersDue_) && !hasMainThread_) makeReadable();
  return descriptor_;
}

std::size_t LinuxMainQueue::waitingTasks() const {
  const MutexLock lock(mutex_);
  return entries_.size();
}

void LinuxMainQueue::serveTimersAt(TimerThread::Clock::time_point time) {
  const MutexLock lock(mutex_);
  timersDue_ = time;
  wake_.notifyOne();
  if (!hasMainThread_) makeReadable();
}

void LinuxMainQueue::serveTimersIfDue() {
  if (!timersDue_ || *timersDue_ > TimerThread::Clock::now()) return;
  timersDue_.reset();
  mutex_.unlock();
  const auto next = TimerThread::shared().standIn();
  mutex_.lock();
  timersDue_ = next;
}

void LinuxMainQueue::takeMainThread() {
  if (std::exchange(hasMainThread_, true)) fatal("the main queue is run or drained by two threads at a time");
  makeUnreadable();
}

void LinuxMainQueue::leaveMainThread() {
  hasMainThread_ = false;
  if (!entries_.empty() || timersDue_) makeReadable();
}

/// Runs the first entry with the mutex released. REQUIRES: there is one, and the calling thread is the main
/// thread.
void LinuxMainQueue::runNext() {
  Entry entry = std::move(entries_.front());
  entries_.pop_front();
  mutex_.unlock();
  runEntry(entry);
  mutex_.lock();
  if (entry.waiter == nullptr) return;
  entry.waiter->isFinished = true;
  entry.waiter->finished.notifyOne();  // under the lock: the waiter dies as soon as it gets it
}

void LinuxMainQueue::runEntry(Entry& entry) {
  QueueFrame frame(*this);
  if (entry.waiter == nullptr) {
    runOrStop(entry.task, label());
    entry.task = nullptr;
    return;
  }
  try {
    entry.waiter->task();
  } catch (...) {
    entry.waiter->exception = std::current_exception();
  }
}

void LinuxMainQueue::makeReadable() {
  if (descriptor_ < 0 || std::exchange(isReadable_, true)) return;
  const std::uint64_t one = 1;
  (void)!::write(descriptor_, &one, sizeof one);  // cannot fail: the counter is 0
}

void LinuxMainQueue::makeUnreadable() {
  if (!std::exchange(isReadable_, false)) return;
  std::uint64_t count = 0;
  (void)!::read(descriptor_, &count, sizeof count);
}

}  // namespace kmv
