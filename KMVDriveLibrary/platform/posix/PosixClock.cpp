// SPDX-License-Identifier: MIT
#include "platform/posix/PosixClock.h"

namespace kmv {

Date PosixClock::now() {
  const std::chrono::duration<double> since1970 = std::chrono::system_clock::now().time_since_epoch();
  return {since1970.count() - Date::kReferenceDate};
}

std::chrono::nanoseconds PosixClock::monotonicNow() {
  return std::chrono::steady_clock::now().time_since_epoch();
}

}  // namespace kmv
