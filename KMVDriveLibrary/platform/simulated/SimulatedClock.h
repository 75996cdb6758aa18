// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>

#include "platform/Clock.h"
#include "platform/simulated/Scheduler.h"

namespace kmv::simulated {

/// Both clocks follow virtual time; the wall clock can be set.
class SimulatedClock final : public Clock {
 public:
  /// The wall clock when the machine was made: 2026-01-01 00:00 UTC, in seconds since 2001-01-01.
  static constexpr double kStart = 788'918'400;

  explicit SimulatedClock(const Scheduler& scheduler) : scheduler_(scheduler) {}
  void set(Date date) { start_ += date.secondsSinceReferenceDate - now().secondsSinceReferenceDate; }
  Date now() override { return {start_ + std::chrono::duration<double>(scheduler_.now()).count()}; }
  std::chrono::nanoseconds monotonicNow() override { return scheduler_.now(); }

 private:
  const Scheduler& scheduler_;
  double start_ = kStart;
};

}  // namespace kmv::simulated
