// SPDX-License-Identifier: MIT
#pragma once

#include <dispatch/dispatch.h>

#include <string>
#include <string_view>

namespace kmv::macos {

/// One queue whose task the calling thread is running; lives on that thread's stack, linked to the ones
/// further out. The platform itself knows the innermost queue only.
class QueueScope {
 public:
  /// `label` must outlive the scope.
  QueueScope(dispatch_queue_t queue, const std::string& label);
  ~QueueScope();
  QueueScope(const QueueScope&) = delete;
  QueueScope& operator=(const QueueScope&) = delete;

  /// True when the calling thread runs a task of `queue`, at any depth, that was entered through a scope.
  static bool holds(dispatch_queue_t queue);

  /// Stops the process with a message that names the queue on which `call` was called, and the innermost one
  /// of the calling thread.
  [[noreturn]] static void stopForReentry(std::string_view call, const std::string& label);

 private:
  static constinit thread_local const QueueScope* innermost_;

  const dispatch_queue_t queue_;
  const std::string& label_;
  const QueueScope* const outer_;
};

}  // namespace kmv::macos
