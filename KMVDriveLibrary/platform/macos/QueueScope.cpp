// SPDX-License-Identifier: MIT
#include "platform/macos/QueueScope.h"

#include "base/Fatal.h"

namespace kmv::macos {

constinit thread_local const QueueScope* QueueScope::innermost_ = nullptr;

QueueScope::QueueScope(dispatch_queue_t queue, const std::string& label)
    : queue_(queue), label_(label), outer_(innermost_) {
  innermost_ = this;
}

QueueScope::~QueueScope() {
  innermost_ = outer_;
}

bool QueueScope::holds(dispatch_queue_t queue) {
  const QueueScope* scope = innermost_;
  while (scope != nullptr && scope->queue_ != queue) scope = scope->outer_;
  return scope != nullptr;
}

void QueueScope::stopForReentry(std::string_view call, const std::string& label) {
  std::string message =
      std::string(call) + " called on queue \"" + label + "\" that the calling thread already owns";
  if (innermost_ != nullptr && innermost_->label_ != label)
    message += " (it is running a task of queue \"" + innermost_->label_ + "\" now)";
  fatal(message + "; it would wait for ever");
}

}  // namespace kmv::macos
