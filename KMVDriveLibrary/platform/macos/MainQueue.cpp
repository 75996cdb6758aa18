// SPDX-License-Identifier: MIT
#include "platform/macos/MainQueue.h"

#include <CoreFoundation/CoreFoundation.h>
#include <dispatch/dispatch.h>
#include <pthread.h>
#include <unistd.h>

#include <utility>

#include "base/Fatal.h"
#include "base/RunOrStop.h"
#include "platform/macos/QueueScope.h"
#include "platform/macos/Queues.h"
#include "platform/posix/Retry.h"
#include "platform/posix/SpawnHooks.h"

namespace kmv::macos {

struct MacMainQueue::Delayed {
  std::shared_ptr<MacMainQueue> queue;
  Task task;
};

void MacMainQueue::async(Task task) {
  append({std::move(task), nullptr});
}

void MacMainQueue::append(Entry entry) {
  const MutexLock lock(mutex_);
  entries_.push_back(std::move(entry));
  takePlaces();
  if (!readEnd_) return;
  if (service_ == Service::none) makeReadable();
  if (service_ == Service::run) wakeRunLoop();
}

/// As many places as there are tasks. Those that a drained task has left serve again: a process that only
/// drains has no more of them than it ever had tasks at a time.
void MacMainQueue::takePlaces() {
  if (readEnd_) return;
  using Keeper = std::shared_ptr<MacMainQueue>;
  for (; places_ < entries_.size(); ++places_) {
    dispatch_async_f(dispatch_get_main_queue(), new Keeper(shared_from_this()), [](void* context) noexcept {
      const std::unique_ptr<Keeper> keeper(static_cast<Keeper*>(context));
      (*keeper)->takeTurn();
    });
  }
}

/// The turn of a place. The platform runs all that waits in its main queue at once, so after `stop` a place
/// leaves its task for the next run.
void MacMainQueue::takeTurn() {
  const MutexLock lock(mutex_);
  --places_;
  if (entries_.empty() || readEnd_ || (service_ == Service::run && isStopRequested_)) return;
  runNext();
}

void MacMainQueue::sync(TaskReference task) {
  if (pthread_main_np() != 0) QueueScope::stopForReentry("sync", label_);
  Waiter waiter{task};
  append({nullptr, &waiter});
  {
    MutexLock lock(mutex_);
    while (!waiter.isFinished) waiter.finished.wait(lock);
  }
  if (waiter.exception != nullptr) std::rethrow_exception(std::move(waiter.exception));
}

void MacMainQueue::after(std::chrono::nanoseconds delay, Task task) {
  if (delay <= std::chrono::nanoseconds::zero()) return async(std::move(task));
  dispatch_after_f(timeAfter(delay), dispatch_get_global_queue(QOS_CLASS_USER_INITIATED, 0),
                   new Delayed{shared_from_this(), std::move(task)}, [](void* context) noexcept {
                     const std::unique_ptr<Delayed> delayed(static_cast<Delayed*>(context));
                     delayed->queue->async(std::move(delayed->task));
                   });
}

bool MacMainQueue::isCurrent() const {
  return QueueScope::holds(dispatch_get_main_queue());
}

void MacMainQueue::run() {
  if (isCurrent()) QueueScope::stopForReentry("run", label_);
  {
    const MutexLock lock(mutex_);
    beginService(Service::run);
  }
  while (!takesStop()) {
    if (runNextWithoutPlace()) continue;
    // Finished at once: nothing can come in a block of the platform's main queue, whose turn it is.
    if (CFRunLoopRunInMode(kCFRunLoopDefaultMode, 1e9, 1) == kCFRunLoopRunFinished)
      fatal("run called on the main queue inside one of its blocks; it would never end");
  }
  const MutexLock lock(mutex_);
  endService();
}

/// Wakes the run loop by an empty task: `CFRunLoopStop` is lost when the loop is not running yet.
void MacMainQueue::stop() {
  const MutexLock lock(mutex_);
  isStopRequested_ = true;
  if (service_ == Service::run) wakeRunLoop();
}

std::size_t MacMainQueue::drain() {
  if (isCurrent()) return 0;
  const MutexLock lock(mutex_);
  beginService(Service::drain);
  const std::size_t count = entries_.size();
  for (std::size_t i = 0; i < count; ++i) runNext();
  endService();
  return count;
}

int MacMainQueue::fileDescriptor() {
  const MutexLock lock(mutex_);
  int ends[2];
  if (readEnd_ || !makePipe(ends)) return readEnd_.get();
  readEnd_ = FileDescriptor(ends[0]);
  writeEnd_ = FileDescriptor(ends[1]);
  if (!entries_.empty() && service_ == Service::none) makeReadable();
  return readEnd_.get();
}

std::size_t MacMainQueue::waitingTasks() const {
  const MutexLock lock(mutex_);
  return entries_.size();
}

void MacMainQueue::wakeRunLoop() {
  dispatch_async_f(dispatch_get_main_queue(), nullptr, [](void*) noexcept {});
}

bool MacMainQueue::takesStop() {
  const MutexLock lock(mutex_);
  return std::exchange(isStopRequested_, false);
}

/// False when there is none: every task has its place, unless the host has a descriptor.
bool MacMainQueue::runNextWithoutPlace() {
  const MutexLock lock(mutex_);
  if (!readEnd_ || entries_.empty()) return false;
  runNext();
  return true;
}

void MacMainQueue::beginService(Service service) {
  if (pthread_main_np() == 0) fatal("the main queue is run or drained beside the process's main thread");
  service_ = service;
  makeUnreadable();
}

void MacMainQueue::endService() {
  service_ = Service::none;
  takePlaces();
  if (!entries_.empty()) makeReadable();
}

/// Runs the first entry with the mutex released. REQUIRES: there is one.
void MacMainQueue::runNext() {
  Entry entry = std::move(entries_.front());
  entries_.pop_front();
  mutex_.unlock();
  runEntry(entry);
  mutex_.lock();
  if (entry.waiter == nullptr) return;
  entry.waiter->isFinished = true;
  entry.waiter->finished.notifyOne();  // under the lock: the waiter dies as soon as it gets it
}

void MacMainQueue::runEntry(Entry& entry) {
  const QueueScope scope(dispatch_get_main_queue(), label_);
  if (entry.waiter == nullptr) {
    runOrStop(entry.task, label_);
    entry.task = nullptr;
    return;
  }
  try {
    entry.waiter->task();
  } catch (...) {
    entry.waiter->exception = std::current_exception();
  }
}

void MacMainQueue::makeReadable() {
  if (!writeEnd_ || std::exchange(isReadable_, true)) return;
  const char one = 1;
  retryOnEINTR([&one, end = writeEnd_.get()] {
    return ::write(end, &one, sizeof one);
  });  // the pipe is empty: it has room
}

void MacMainQueue::makeUnreadable() {
  if (!std::exchange(isReadable_, false)) return;
  char one = 0;
  retryOnEINTR([&one, end = readEnd_.get()] { return ::read(end, &one, sizeof one); });
}

}  // namespace kmv::macos
