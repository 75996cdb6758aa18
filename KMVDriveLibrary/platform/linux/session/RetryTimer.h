// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>

namespace kmv {

/// When to try again what failed for a reason that may pass: an exponential back-off while something is left to try.
/// Thread: one at a time.
class RetryTimer {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr std::chrono::milliseconds kShortest{50}, kLongest{2000};

  /// Plans the next try, unless one is planned, or ends the retries.
  std::optional<Clock::time_point> plan(bool isNeeded, Clock::time_point now) {
    if (!isNeeded) {
      delay_ = kShortest;
      at_.reset();
    } else if (!at_) {
      at_ = now + delay_;
      delay_ = std::min(2 * delay_, kLongest);
    }
    return at_;
  }

  /// True once for each planned try.
  bool isDue(Clock::time_point now) { return at_ && *at_ <= now && std::exchange(at_, std::nullopt); }

 private:
  std::optional<Clock::time_point> at_;
  std::chrono::milliseconds delay_ = kShortest;
};

}  // namespace kmv
