// SPDX-License-Identifier: MIT
#pragma once

namespace kmv {

/// Seconds since 2001-01-01 00:00:00 UTC for "DAAppearanceTime": the time of day, strictly monotonic within
/// the process: moved forward by as little as it takes to be greater than every time given out before. Any
/// thread.
double nextAppearanceTime();

}  // namespace kmv
