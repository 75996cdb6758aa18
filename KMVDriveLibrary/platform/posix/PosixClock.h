// SPDX-License-Identifier: MIT
#pragma once

#include "platform/Clock.h"

namespace kmv {

class PosixClock final : public Clock {
 public:
  Date now() override;
  std::chrono::nanoseconds monotonicNow() override;
};

}  // namespace kmv
