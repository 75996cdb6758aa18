// SPDX-License-Identifier: MIT
#include "platform/linux/queues/QueueFrame.h"

#include <exception>
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

namespace {

[[noreturn]] void stopForException(std::string_view label, std::string_view problem) {
  fatal("a task of queue \"" + std::string(label) + "\" ended with an exception: " + std::string(problem));
}

}  // namespace

void runOrStop(const SerialQueue::Task& task, std::string_view label) {
  try {
    task();
  } catch (const std::exception& exception) {
    stopForException(label, exception.what());
  } catch (...) {
    stopForException(label, "of unknown type");
  }
}

}  // namespace kmv
