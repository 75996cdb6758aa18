// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace kmv {

/// A reference to something callable without arguments; costs no allocation. Valid while the callable lives.
class TaskReference {
 public:
  template <typename F>
  requires(!std::is_same_v<std::remove_cvref_t<F>, TaskReference>) TaskReference(
      F&& callable)  // NOLINT(google-explicit-constructor): a lambda is to be passed as it stands
      : target_(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
        call_([](void* target) { (*static_cast<std::remove_reference_t<F>*>(target))(); }) {}

  void operator()() const { call_(target_); }

 private:
  void* target_;
  void (*call_)(void*);
};

/// A labelled serial queue: tasks run one at a time, in the order in which they were handed over; what one
/// task did is visible to the next.
///
/// Threads: every member may be called from any thread.
/// Failure: waiting for a queue from a task that runs on it can never end; it stops the process with a
/// message that names
///          the queue.
class KMV_EXPORT SerialQueue {
 public:
  using Task = std::function<void()>;

  virtual ~SerialQueue() = default;

  virtual const std::string& label() const = 0;

  /// Runs `task` later; returns at once.
  virtual void async(Task task) = 0;

  /// Runs `task` after everything handed over before, and returns when it has run. A free queue runs it on
  /// the calling thread. What `task` throws reaches the caller.
  virtual void sync(TaskReference task) = 0;

  /// As `async`, but not before `delay` has passed on the monotonic clock.
  virtual void after(std::chrono::nanoseconds delay, Task task) = 0;

  /// True on a thread that is running a task of this queue (at any depth of nested `sync` calls).
  virtual bool isCurrent() const = 0;
};

/// The process's main queue. Nothing runs on it by itself: the host runs it, drains it, or watches its
/// descriptor in a loop of its own and drains it when the descriptor becomes readable. The thread that does
/// so is the main thread meanwhile.
class KMV_EXPORT MainQueue : public SerialQueue {
 public:
  /// Runs tasks on the calling thread until `stop` is called. REQUIRES: no other thread runs or drains the
  /// queue.
  virtual void run() = 0;

  /// Makes the present or the next `run` return after the task it is in. Any thread; not async-signal-safe.
  virtual void stop() = 0;

  /// Runs the tasks that are due now, on the calling thread, and returns how many ran. Tasks that they hand
  /// over wait for the next call.
  virtual std::size_t drain() = 0;

  /// A descriptor that polls readable while tasks wait, for a host's own event loop; -1 where the platform
  /// has none. Owned by the queue: poll it, neither read nor close it.
  virtual int fileDescriptor() = 0;
};

/// The main queue of the platform in use: "kDiskArbiterNewDiskDictionary" and the removals by URL arrive on
/// it.
KMV_EXPORT MainQueue& mainQueue();

/// A new serial queue of the platform in use.
KMV_EXPORT std::shared_ptr<SerialQueue> makeSerialQueue(std::string label);

}  // namespace kmv
