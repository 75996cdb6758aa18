// SPDX-License-Identifier: MIT
#include "platform/linux/queues/QueueFrame.h"

#include <string>

#include "base/Fatal.h"

namespace kmv {

constinit thread_local const QueueFrame* QueueFrame::innermost_ = nullptr;

bool QueueFrame::holds(const SerialQueue& queue) {
  const QueueFrame* frame = innermost_;
  while (frame != nullptr && &frame->queue_ != &queue) frame = frame->outer_;
  return frame != nullptr;
}

void QueueFrame::stopForReentry(std::string_view call, const SerialQueue& queue) {
  const SerialQueue& innermost = innermost_->queue_;
  std::string message =
      std::string(call) + " called on queue \"" + queue.label() + "\" that the calling thread already owns";
  if (&innermost != &queue) message += " (it is running a task of queue \"" + innermost.label() + "\" now)";
  fatal(message + "; it would wait for ever");
}

}  // namespace kmv
