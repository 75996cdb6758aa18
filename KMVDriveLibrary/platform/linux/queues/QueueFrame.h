// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Queue.h>

#include <string_view>

namespace kmv {

/// One queue whose task the calling thread is running; lives on that thread's stack, linked to the ones
/// further out.
class QueueFrame {
 public:
  explicit QueueFrame(const SerialQueue& queue) : queue_(queue), outer_(innermost_) { innermost_ = this; }
  ~QueueFrame() { innermost_ = outer_; }
  QueueFrame(const QueueFrame&) = delete;
  QueueFrame& operator=(const QueueFrame&) = delete;

  /// True when the calling thread runs a task of `queue`, at any depth.
  static bool holds(const SerialQueue& queue);

  /// Stops the process with a message that names `queue`, on which `call` was called, and the innermost
  /// queue. REQUIRES: `holds(queue)`.
  [[noreturn]] static void stopForReentry(std::string_view call, const SerialQueue& queue);

 private:
  // Initial-exec: one load instead of a call, in the path of every `sync`; a pointer fits what the loader
  // keeps free for libraries that are loaded late.
  [[gnu::tls_model("initial-exec")]] static constinit thread_local const QueueFrame* innermost_;

  const SerialQueue& queue_;
  const QueueFrame* outer_;
};

}  // namespace kmv
