// SPDX-License-Identifier: MIT
#include "platform/linux/queues/TimerThread.h"

#include <algorithm>
#include <utility>

#include "base/Fatal.h"
#include "platform/linux/queues/Threads.h"

namespace kmv {

TimerThread& TimerThread::shared() {
  static auto* timers = new TimerThread;
  return *timers;
}

bool TimerThread::isLater(const Timer& left, const Timer& right) {
  return left.due != right.due ? left.due > right.due : left.number > right.number;
}

void TimerThread::schedule(std::chrono::nanoseconds delay, std::shared_ptr<SerialQueue> queue,
                           SerialQueue::Task task) {
  const auto now = Clock::now();
  const auto due = delay < Clock::time_point::max() - now ? now + delay : Clock::time_point::max();
  bool starts = false;
  {
    const MutexLock lock(mutex_);
    heap_.push_back({due, arrivals_++, std::move(queue), std::move(task)});
    const auto number = heap_.back().number;
    std::push_heap(heap_.begin(), heap_.end(), isLater);
    starts = !std::exchange(hasThread_, true);
    if (!starts && heap_.front().number == number) earlierDue_.notifyOne();
  }
  if (starts && !startDetachedThread("kmv-timer", threadBody, this))
    fatal("the timer thread could not be started");
}

void TimerThread::threadBody(void* timers) {
  static_cast<TimerThread*>(timers)->serve();
}

void TimerThread::serve() {
  MutexLock lock(mutex_);
  while (!heap_.empty()) {
    const auto due = heap_.front().due;
    if (due > Clock::now()) {
      earlierDue_.waitUntil(lock, due);
      continue;
    }
    std::pop_heap(heap_.begin(), heap_.end(), isLater);
    Timer timer = std::move(heap_.back());
    heap_.pop_back();
    lock.unlock();
    timer.queue->async(std::move(timer.task));
    timer.queue.reset();  // outside the lock: it may be the last reference
    lock.lock();
  }
  hasThread_ = false;
}

}  // namespace kmv
