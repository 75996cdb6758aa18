// SPDX-License-Identifier: MIT
#include <strings.h>

#include "activity/DriverMatches.h"
#include "support/Testing.h"

namespace kmv::activity {
namespace {

/// The rule as it reads: every driver is tried, in the order of the paths.
std::vector<std::string> plainMatches(const DriveStatistics& statistics) {
  std::vector<std::string> drivers, lines;
  for (const auto& driver : statistics.drivers) drivers.push_back(driver.path);
  std::sort(drivers.begin(), drivers.end());
  for (const auto& volume : statistics.volumes) {
    for (const auto& path : drivers) {
      if (!path.empty() && strncasecmp(volume.mediaPath.c_str(), path.c_str(), path.size()) == 0)
        lines.push_back(volume.mediaPath + " by " + path);
    }
  }
  return lines;
}

TEST(DriverMatches, AreThoseOfTryingEveryDriver) {
  std::mt19937 random(7);
  const auto path = [&] {
    std::string text;
    for (auto length = random() % 5; length > 0; --length) text += "aAb/"[random() % 4];
    return text;
  };
  for (int round = 0; round < 2000; ++round) {
    DriveStatistics statistics;
    std::set<std::string> paths;
    for (auto i = random() % 8; i > 0; --i) paths.insert(path());
    for (const auto& driver : paths) statistics.drivers.push_back({driver, DriverCounters{}});
    std::shuffle(statistics.drivers.begin(), statistics.drivers.end(), random);
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
