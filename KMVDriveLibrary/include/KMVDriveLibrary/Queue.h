// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>

namespace kmv {

/// A non-owning reference to a callable without arguments; allocates nothing.
/// Lifetime: the callable's.
class TaskReference {
 public:
  template <typename F>
  requires(!std::is_same_v<std::remove_cvref_t<F>, TaskReference>)
      // NOLINTNEXTLINE(google-explicit-constructor,bugprone-forwarding-reference-overload): callers write `sync([&] {...})`, and `requires` leaves copies out
      TaskReference(F&& callable)
      : target_(const_cast<void*>(static_cast<const void*>(std::addressof(callable)))),
        call_([](void* target) { (*static_cast<std::remove_reference_t<F>*>(target))(); }) {}

  void operator()() const { call_(target_); }

 private:
  void* target_;
  void (*call_)(void*);
};

/// A labelled serial queue: tasks run one at a time, first in, first out; each happens before the next.
///
/// Threads: every member may be called from any thread.
/// Failure: waiting for a queue from one of its own tasks would deadlock; it stops the process with a message
/// that names the queue. So does an exception out of a task that nobody waits for.
class KMV_EXPORT SerialQueue {
 public:
  using Task = std::function<void()>;

  virtual ~SerialQueue() = default;

  virtual const std::string& label() const = 0;

  /// Queues `task`; never blocks.
  virtual void async(Task task) = 0;

  /// Runs `task` after everything queued before, and returns when it has run.
  /// An idle queue runs it on the calling thread.
  /// Exceptions of `task` propagate to the caller.
  virtual void sync(TaskReference task) = 0;

  /// As `async`, but not before `delay` has passed on the monotonic clock.
  virtual void after(std::chrono::nanoseconds delay, Task task) = 0;

  /// True on a thread that is running a task of this queue (at any depth of nested `sync` calls).
  virtual bool isCurrent() const = 0;
};

/// The process's main queue.
/// Linux and the simulated machine: nothing runs on it by itself. The host runs it, drains it, or polls its
/// descriptor in an event loop and drains it when that becomes readable. The thread that does so is the main
/// thread meanwhile.
/// macOS: it runs with the host's main run loop or `dispatch_main`. `run` and `drain` are for the process's main
/// thread only, and after the first call of `fileDescriptor` only they do its work.
class KMV_EXPORT MainQueue : public SerialQueue {
 public:
  /// Runs tasks on the calling thread until `stop` is called.
  /// REQUIRES: no other thread runs or drains the queue.
  virtual void run() = 0;

  /// Makes the present or the next `run` return after its current task.
  /// Thread: any; not async-signal-safe.
  virtual void stop() = 0;

  /// Runs the tasks that are due now, on the calling thread, and returns how many ran.
  /// Tasks that they queue wait for the next call.
  virtual std::size_t drain() = 0;

  /// A descriptor that polls readable while tasks wait, for a host's own event loop; -1 where the platform
  /// has none.
  /// Owner: the queue; poll it, neither read nor close it.
  virtual int fileDescriptor() = 0;

  /// How many tasks wait for the main thread.
  /// Nothing drops them: where nobody runs the queue, every arrival, every removal by URL and every change of the unmounted list adds one that
  /// keeps its drive's dictionary, about 2.3 kB.
  /// A number that keeps growing tells a host that it does not run its main queue.
  /// Thread: any.
  virtual std::size_t waitingTasks() const = 0;
};

/// The main queue of the platform in use: "kDiskArbiterNewDiskDictionary" and the removals by URL arrive on
/// it.
KMV_EXPORT MainQueue& mainQueue();

/// A new serial queue of the platform in use.
KMV_EXPORT std::shared_ptr<SerialQueue> makeSerialQueue(std::string label);

}  // namespace kmv
