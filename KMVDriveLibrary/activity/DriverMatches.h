// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

#include "platform/DriveStatistics.h"

namespace kmv::activity {

/// Which drivers measure which volumes: those whose path, in either letter case, begins the path of the
/// volume's medium. Nothing but text counts, no separator has to follow: intended. Building takes n log n.
class DriverMatches {
 public:
  struct Match {
    std::size_t volume;
    std::size_t driver;
  };

  /// In the order of the volumes and, for each, in ascending order of the drivers' paths.
  static std::vector<Match> build(const DriveStatistics& statistics);
};

}  // namespace kmv::activity
