// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

namespace kmv {

/// The wall clock; it can be set, and so go back. Every member may be called from any thread.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual Date now() = 0;
};

}  // namespace kmv
