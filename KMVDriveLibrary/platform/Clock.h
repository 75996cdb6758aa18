// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <chrono>

namespace kmv {

/// The time of the machine.
/// Every member may be called from any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  /// The wall clock; it can be set, so it may go back.
  virtual Date now() = 0;
  /// The monotonic clock: time since an unspecified start; never goes back.
  virtual std::chrono::nanoseconds monotonicNow() = 0;
};

}  // namespace kmv
