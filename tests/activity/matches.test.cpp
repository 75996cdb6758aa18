// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

#include "activity/DriverMatches.h"

namespace kmv::activity {
namespace {

std::string lower(std::string text) {
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c;
  return text;
}

/// The rule as it reads: every driver is tried.
std::vector<std::string> plainMatches(const DriveStatistics& statistics) {
  std::vector<std::string> lines;
  for (const auto& volume : statistics.volumes) {
    std::vector<std::string> paths;
    for (const auto& driver : statistics.drivers) {
      if (!driver.path.empty() && lower(volume.mediaPath).starts_with(lower(driver.path)))
        paths.push_back(driver.path);
    }
    std::sort(paths.begin(), paths.end());
    for (const auto& path : paths) lines.push_back(volume.mediaPath + " by " + path);
  }
  return lines;
}

TEST(DriverMatches, AreThoseOfTryingEveryDriver) {
  std::mt19937 random(7);
  for (int round = 0; round < 2000; ++round) {
    DriveStatistics statistics;
    const auto path = [&] {
      std::string text;
      for (auto length = random() % 5; length > 0; --length) text += "aAb/"[random() % 4];
      return text;
    };
    for (auto i = random() % 8; i > 0; --i) {
      const std::string candidate = path();
      const bool isThere = std::any_of(statistics.drivers.begin(), statistics.drivers.end(),
                                       [&](const auto& driver) { return driver.path == candidate; });
      if (!isThere) statistics.drivers.push_back({candidate, DriverCounters{}});
    }
    for (auto i = random() % 5; i > 0; --i)
      statistics.volumes.push_back({*URL::fromString("file:///v"), path()});
    std::vector<std::string> lines;
    for (const auto& [volume, driver] : driverMatches(statistics))
      lines.push_back(statistics.volumes[volume].mediaPath + " by " + statistics.drivers[driver].path);
    ASSERT_EQ(lines, plainMatches(statistics));
  }
}

}  // namespace
}  // namespace kmv::activity
