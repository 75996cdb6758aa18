// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Queue.h>

#include <string_view>
#include <vector>

namespace kmv {

/// One queue whose task the calling thread is running; lives on that thread's stack, linked to the ones
/// further out.
class QueueFrame {
 public:
  explicit QueueFrame(const SerialQueue& queue) : QueueFrame(&queue) {}
  ~QueueFrame() { innermost_ = outer_; }
  QueueFrame(const QueueFrame&) = delete;
  QueueFrame& operator=(const QueueFrame&) = delete;

  /// Below it the thread runs what another thread would have run: the queues further out are no longer
  /// current, though the thread holds them still.
  class Boundary;

  /// True when the calling thread runs a task of `queue`, at any depth up to a boundary.
  static bool holds(const SerialQueue& queue);

  /// Stops the process with a message that names `queue`, on which `call` was called, and the innermost
  /// queue. REQUIRES: `holds(queue)`.
  [[noreturn]] static void stopForReentry(std::string_view call, const SerialQueue& queue);

 private:
  friend class QueueWait;
  explicit QueueFrame(const SerialQueue* queue) : queue_(queue), outer_(innermost_) { innermost_ = this; }

  // Initial-exec: one load instead of a call, in the path of every `sync`; a pointer fits what the loader
  // keeps free for libraries that are loaded late.
  [[gnu::tls_model("initial-exec")]] static constinit thread_local const QueueFrame* innermost_;

  const SerialQueue* const queue_;  // null for a boundary
  const QueueFrame* const outer_;
};

class QueueFrame::Boundary {
  const QueueFrame frame_{nullptr};
};

/// While it lives, the calling thread waits for `queue`, whose turn another one has. Stops the process with a
/// message when that can never end: the other one waits, for queues whose turns yet others have, and so on,
/// for one that this thread has itself. Costs nothing where nobody waits: the thread whose wait closes such a
/// cycle finds all the others asleep and listed.
class QueueWait {
 public:
  using Others = std::vector<const QueueWait*>;

  explicit QueueWait(const SerialQueue& queue);
  ~QueueWait();
  QueueWait(const QueueWait&) = delete;
  QueueWait& operator=(const QueueWait&) = delete;

 private:
  bool holds(const SerialQueue& queue) const;
  static const QueueWait* holderOf(const SerialQueue& queue, const Others& others);
  void stopIfEndless(const Others& others) const;

  const SerialQueue& queue_;
  const QueueFrame* const frames_;
};

}  // namespace kmv
