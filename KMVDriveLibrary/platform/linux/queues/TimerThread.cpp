// SPDX-License-Identifier: MIT
#include "platform/linux/queues/TimerThread.h"

#include <algorithm>
#include <utility>

#include "platform/linux/queues/Threads.h"

namespace kmv {
namespace {

/// How long nobody looks for a thread once the system had none.
constexpr auto kTimeBetweenAttempts = std::chrono::milliseconds(50);

constinit thread_local bool isTimerThread = false;

}  // namespace

TimerThread& TimerThread::shared() {
  static auto* timers = new TimerThread;
  return *timers;
}

bool TimerThread::isCurrent() {
  return isTimerThread;
}

bool TimerThread::isLater(const Timer& left, const Timer& right) {
  return left.due != right.due ? left.due > right.due : left.number > right.number;
}

void TimerThread::schedule(std::chrono::nanoseconds delay, std::shared_ptr<SerialQueue> queue,
                           SerialQueue::Task task) {
  refuseInForkedChild("a delayed task was queued");
  const auto now = Clock::now();
  const auto due = delay < Clock::time_point::max() - now ? now + delay : Clock::time_point::max();
  {
    const MutexLock lock(mutex_);
    heap_.push_back({due, arrivals_++, std::move(queue), std::move(task)});
    const auto number = heap_.back().number;
    std::push_heap(heap_.begin(), heap_.end(), isLater);
    if (hasThread_ && heap_.front().number == number) earlierDue_.notifyOne();
  }
  if (startThread()) return;
  Substitute substitute;
  {
    const MutexLock lock(mutex_);
    substitute = substitute_;
  }
  if (substitute) substitute(now + kTimeBetweenAttempts);
}

/// False when the system has none left.
bool TimerThread::startThread() {
  {
    const MutexLock lock(mutex_);
    if (std::exchange(hasThread_, true)) return true;
  }
  if (startDetachedThread("kmv-timer", threadBody, this)) return true;
  const MutexLock lock(mutex_);
  hasThread_ = false;
  return false;
}

void TimerThread::threadBody(void* timers) {
  isTimerThread = true;
  static_cast<TimerThread*>(timers)->serve();
}

void TimerThread::serve() {
  MutexLock lock(mutex_);
  while (true) {
    if (heap_.empty()) {
      earlierDue_.wait(lock);
    } else if (const auto due = heap_.front().due; due > Clock::now()) {
      earlierDue_.waitUntil(lock, due);
    } else {
      fireFirst();
    }
  }
}

void TimerThread::fireFirst() {
  std::pop_heap(heap_.begin(), heap_.end(), isLater);
  Timer timer = std::move(heap_.back());
  heap_.pop_back();
  mutex_.unlock();
  if (timer.queue == nullptr) {
    timer.task();
  } else {
    timer.queue->async(std::move(timer.task));
  }
  timer = {};  // outside the lock: it may hold the last reference
  mutex_.lock();
}

void TimerThread::setSubstitute(Substitute substitute) {
  const MutexLock lock(mutex_);
  substitute_ = std::move(substitute);
}

std::optional<TimerThread::Clock::time_point> TimerThread::standIn() {
  if (startThread()) return std::nullopt;
  const MutexLock lock(mutex_);
  const auto now = Clock::now();
  while (!heap_.empty() && heap_.front().due <= now) fireFirst();
  return heap_.empty() ? std::nullopt : std::optional(now + kTimeBetweenAttempts);
}

}  // namespace kmv
