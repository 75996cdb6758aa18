// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedDevices.h"

#include <algorithm>
#include <utility>

namespace kmv::simulated {

std::unique_ptr<DriveStatisticsReader> SimulatedIORegistry::makeStatisticsReader() {
  return std::make_unique<SimulatedStatisticsReader>(statistics_);
}

void SimulatedStatistics::read(DriveStatistics& statistics) {
  statistics.wereDriversFound = lookupsToFail == 0;
  if (lookupsToFail > 0) --lookupsToFail;
  if (!statistics.wereDriversFound) return;
  const auto samePlaces = [](const DriveStatistics& a, const DriveStatistics& b) {
    const auto samePath = [](const auto& x, const auto& y) { return x.path == y.path; };
    const auto sameMedia = [](const auto& x, const auto& y) {
      return x.url == y.url && x.mediaPath == y.mediaPath;
    };
    return std::equal(a.drivers.begin(), a.drivers.end(), b.drivers.begin(), b.drivers.end(), samePath) &&
           std::equal(a.volumes.begin(), a.volumes.end(), b.volumes.begin(), b.volumes.end(), sameMedia);
  };
  DriveStatistics now;
  for (const auto& [path, counters] : drivers) now.drivers.push_back({path, counters});
  fileSystem_.forEachVolume([&](testing::DiskId disk, const URL& url) {
    if (hidden.contains(disk)) return;
    const auto media = mediaPaths.find(disk);
    now.volumes.push_back({url, media == mediaPaths.end() ? std::string() : media->second});
  });
  now.wereDriversFound = true;
  now.generation = samePlaces(statistics, now) ? statistics.generation : statistics.generation + 1;
  statistics = std::move(now);
}

}  // namespace kmv::simulated
