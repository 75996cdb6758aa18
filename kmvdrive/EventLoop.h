// SPDX-License-Identifier: MIT
#pragma once

#include <signal.h>

#include <chrono>
#include <future>
#include <optional>
#include <thread>

namespace kmv::tool {

/// Calls `handler`, with `flags` of sigaction(2), when the signal comes.
void handleSignal(int signal, void (*handler)(int), int flags);

/// Turns SIGINT and SIGTERM into a descriptor that polls readable, for one poll loop over everything. The
/// first signal asks for a clean end, and has its usual effect when that does not come within a second; so
/// has the second one of its kind at once. A watchdog thread takes the signals: a handler on the main thread
/// would not run while a system call there waits for a dead server. REQUIRES: one at a time in a process.
class StopSignals {
 public:
  /// Failure: throws std::system_error when the process is out of descriptors or threads.
  StopSignals();
  ~StopSignals();
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

  /// Readable from the first signal on. Poll it, do not read it.
  int fileDescriptor() const { return readEnd_; }

 private:
  void watch();

  int readEnd_ = -1;
  int writeEnd_ = -1;
  sigset_t signalsBefore_{};
  std::promise<void> cleanEnd_;
  std::thread watchdog_;
};

/// Why a wait came to its end.
enum class Wake {
  worked,         ///< the main queue was drained; or a signal interrupted that does not ask to stop
  deadline,       ///< it has passed; due tasks have run
  stopRequested,  ///< a signal asks for a clean end
  outputClosed,   ///< nobody can read the output any more
};

/// The program's only blocking wait: the library's main queue, the stop signals and the reader of the output
/// in a single poll, so an idle program has no wake-ups, but where no descriptor is left for the queue. Used on the
/// main thread, which thereby is the main queue's thread.
class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;

  /// Owns neither descriptor.
  EventLoop(int outputFileDescriptor, int stopFileDescriptor)
      : output_(outputFileDescriptor), stop_(stopFileDescriptor) {}

  /// Waits until something happens or `deadline` has passed (none: without limit), and drains the main queue.
  Wake wait(std::optional<Clock::time_point> deadline);

 private:
  int output_;
  int stop_;
};

}  // namespace kmv::tool
