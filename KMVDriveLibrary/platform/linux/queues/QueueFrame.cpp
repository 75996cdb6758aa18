// SPDX-License-Identifier: MIT
#include "platform/linux/queues/QueueFrame.h"

#include <KMVDriveLibrary/Mutex.h>

#include <algorithm>
#include <string>

#include "base/Fatal.h"
#include "platform/linux/queues/Threads.h"

namespace kmv {

constinit thread_local const QueueFrame* QueueFrame::innermost_ = nullptr;

bool QueueFrame::holds(const SerialQueue& queue) {
  const QueueFrame* frame = innermost_;
  while (frame != nullptr && frame->queue_ != nullptr && frame->queue_ != &queue) frame = frame->outer_;
  return frame != nullptr && frame->queue_ != nullptr;
}

void QueueFrame::stopForReentry(std::string_view call, const SerialQueue& queue) {
  const SerialQueue& innermost = *innermost_->queue_;
  std::string message =
      std::string(call) + " called on queue \"" + queue.label() + "\" that the calling thread already owns";
  if (&innermost != &queue) message += " (it is running a task of queue \"" + innermost.label() + "\" now)";
  fatal(message + "; it would wait for ever");
}

namespace {

/// Every thread that waits for a queue.
struct Waits {
  Mutex mutex;
  QueueWait::Others all KMV_GUARDED_BY(mutex);
};

Waits& waits() {
  static auto* const shared = new Waits;  // threads may wait while the process exits
  return *shared;
}

}  // namespace

QueueWait::QueueWait(const SerialQueue& queue) : queue_(queue), frames_(QueueFrame::innermost_) {
  refuseInForkedChild("a queue that was busy was waited for");
  const MutexLock lock(waits().mutex);
  waits().all.push_back(this);
  if (frames_ != nullptr) stopIfEndless(waits().all);
}

QueueWait::~QueueWait() {
  const MutexLock lock(waits().mutex);
  std::erase(waits().all, this);
}

bool QueueWait::holds(const SerialQueue& queue) const {
  const QueueFrame* frame = frames_;
  while (frame != nullptr && frame->queue_ != &queue) frame = frame->outer_;
  return frame != nullptr;
}

/// Null when the thread that has the turn does not wait, or nobody has it.
const QueueWait* QueueWait::holderOf(const SerialQueue& queue, const Others& others) {
  const auto found =
      std::find_if(others.begin(), others.end(), [&](const auto* wait) { return wait->holds(queue); });
  return found == others.end() ? nullptr : *found;
}

void QueueWait::stopIfEndless(const Others& others) const {
  std::string waited;
  for (const QueueWait* wait = this; wait != nullptr; wait = holderOf(wait->queue_, others)) {
    const std::string name = "queue \"" + wait->queue_.label() + '"';
    waited += (waited.empty() ? " waits for " : ", a task of which waits for ") + name;
    if (holds(wait->queue_)) fatal("deadlock: a task of " + name + waited);
  }
}

}  // namespace kmv
