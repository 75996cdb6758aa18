// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <vector>

#include "platform/DriveStatistics.h"

namespace kmv::activity {

/// A driver that measures a volume; both by their place in the statistics.
struct DriverMatch {
  std::size_t volume;
  std::size_t driver;
};

/// Which drivers measure which volumes: those whose path, in either letter case, is a prefix of the path of
/// the volume's medium. A prefix of the text, not of its components, so "/d1" measures "/d10": intended.
/// In the order of the volumes and, for each, in ascending order of the drivers' paths. O(n log n).
std::vector<DriverMatch> driverMatches(const DriveStatistics& statistics);

}  // namespace kmv::activity
