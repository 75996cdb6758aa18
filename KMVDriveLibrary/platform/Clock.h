// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <chrono>

namespace kmv {

/// The time of the machine. Every member may be called from any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  /// The wall clock; it can be set, and so go back.
  virtual Date now() = 0;
  /// The monotonic clock: the time since some fixed moment; never goes back.
  virtual std::chrono::nanoseconds monotonicNow() = 0;
};

}  // namespace kmv
