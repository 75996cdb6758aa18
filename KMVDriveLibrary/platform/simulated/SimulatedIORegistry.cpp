// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedIORegistry.h"

#include <cstdint>
#include <utility>

namespace kmv::simulated {
class SimulatedIORegistry::Reader final : public DriveStatisticsReader {
 public:
  explicit Reader(SimulatedIORegistry& registry) : registry_(registry) {}

  void read(std::uint32_t, DriveStatistics& statistics) override {
    statistics.wereDriversFound = !simulation::ArmedFaults::strikes(registry_.faults_.driverLookups);
    if (!statistics.wereDriversFound) return;
    if (const auto places = registry_.places(); places != places_) {
      registry_.readPlaces(statistics);
      ++statistics.generation;
      places_ = places;
    }
    auto driver = statistics.drivers.begin();
    for (const auto& [path, counters] : registry_.drivers_) (driver++)->counters = counters;
    if (statistics.countsPhysicalDisks) statistics.physicalDisks = statistics.drivers;
  }

 private:
  SimulatedIORegistry& registry_;
  std::pair<std::uint64_t, std::uint64_t> places_;
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

void SimulatedIORegistry::readPlaces(DriveStatistics& statistics) const {
  statistics.drivers.clear();
  for (const auto& [path, counters] : drivers_) statistics.drivers.push_back({path, counters});
  statistics.volumes.clear();
  fileSystem_.mounts().forEachReachable([&](simulation::DiskId disk, const URL& url) {
    if (hidden_.contains(disk)) return;
    const auto media = mediaPaths_.find(disk);
    statistics.volumes.push_back({url, media == mediaPaths_.end() ? std::string() : media->second});
  });
}

}  // namespace kmv::simulated
