// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <chrono>

namespace kmv {

/// Bounds the share of its time that a thread spends on looks, however often there is a reason for one
/// (back-off): the next look waits four times as long as the last one took, a tenth of a second at most. After
/// a rest it waits for nothing.
class DutyCycle {
 public:
  using Clock = std::chrono::steady_clock;
  static constexpr int kRest = 4;  // times as long as the work
  static constexpr std::chrono::milliseconds kLongestRest{100};

  void looked(Clock::time_point begin, Clock::time_point end) {
    next_ = end + std::min<Clock::duration>((end - begin) * kRest, kLongestRest);
  }
  /// The earliest time of the next look.
  Clock::time_point next() const { return next_; }

 private:
  Clock::time_point next_ = Clock::time_point::min();
};

}  // namespace kmv
