// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <optional>

namespace kmv::tool {

/// Why a wait came to its end.
enum class Wake {
  worked,    ///< the main queue had tasks, and they have run; or a signal that is no request to stop came
  deadline,  ///< the time is over; due tasks have run
  stopRequested,  ///< a signal asks for a clean end
  outputClosed,   ///< nobody can read the output any more
};

/// The program's one wait: the library's main queue, the stop signals and the reader of the output in a
/// single poll, so an idle program makes no wake-up at all. Used on the main thread, which thereby is the
/// main queue's thread.
class EventLoop {
 public:
  using Clock = std::chrono::steady_clock;

  /// Owns neither descriptor.
  EventLoop(int outputFileDescriptor, int stopFileDescriptor)
      : output_(outputFileDescriptor), stop_(stopFileDescriptor) {}

  /// Waits until something happens, not beyond `deadline` (none: without limit), and runs what the main queue
  /// holds.
  Wake wait(std::optional<Clock::time_point> deadline);

 private:
  int output_;
  int stop_;
};

}  // namespace kmv::tool
