// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedIORegistry.h"

#include <algorithm>
#include <cstdint>
#include <utility>

namespace kmv::simulated {
namespace {

/// True when both have the same drivers and media in the same order, whatever the counters.
bool samePlaces(const DriveStatistics& a, const DriveStatistics& b) {
  const auto sameDriver = [](const auto& x, const auto& y) { return x.path == y.path; };
  const auto sameMedium = [](const auto& x, const auto& y) {
    return x.url == y.url && x.mediaPath == y.mediaPath;
  };
  return std::equal(a.drivers.begin(), a.drivers.end(), b.drivers.begin(), b.drivers.end(), sameDriver) &&
         std::equal(a.volumes.begin(), a.volumes.end(), b.volumes.begin(), b.volumes.end(), sameMedium);
}

}  // namespace

class SimulatedIORegistry::Reader final : public DriveStatisticsReader {
 public:
  explicit Reader(SimulatedIORegistry& registry) : registry_(registry) {}

  void read(std::uint32_t, DriveStatistics& statistics) override {
    statistics.wereDriversFound = !simulation::ArmedFaults::strikes(registry_.faults_.driverLookups);
    if (!statistics.wereDriversFound) return;
    DriveStatistics now = registry_.presentStatistics();
    now.generation = samePlaces(statistics, now) ? statistics.generation : statistics.generation + 1;
    statistics = std::move(now);
  }

 private:
  SimulatedIORegistry& registry_;
};

std::vector<IOService> SimulatedIORegistry::servicesMatchingBSDName(const std::string& name) {
  ++questions;
  return services[name];
}

std::optional<StorageDevice> SimulatedIORegistry::wholeDisk(const std::string& name) {
  const auto known = disks.find(name);
  return known == disks.end() ? std::nullopt : std::optional(known->second.whole);
}

std::vector<StorageDevice> SimulatedIORegistry::physicalDisks(const std::string& name) {
  const auto known = disks.find(name);
  return known == disks.end() ? std::vector<StorageDevice>() : known->second.physical;
}

std::unique_ptr<DriveStatisticsReader> SimulatedIORegistry::makeStatisticsReader() {
  return std::make_unique<Reader>(*this);
}

DriveStatistics SimulatedIORegistry::presentStatistics() const {
  DriveStatistics now;
  now.wereDriversFound = true;
  for (const auto& [path, counters] : drivers) now.drivers.push_back({path, counters});
  fileSystem_.mounts().forEachReachable([&](simulation::DiskId disk, const URL& url) {
    if (hidden.contains(disk)) return;
    const auto media = mediaPaths.find(disk);
    now.volumes.push_back({url, media == mediaPaths.end() ? std::string() : media->second});
  });
  return now;
}

}  // namespace kmv::simulated
