// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedFaults.h>

#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/IORegistry.h"
#include "platform/simulated/SimulatedFileSystem.h"

namespace kmv::simulated {

/// The services, disks, drivers and media that the test put there.
class SimulatedIORegistry final : public IORegistry {
 public:
  SimulatedIORegistry(const SimulatedFileSystem& fileSystem, simulation::ArmedFaults& faults)
      : fileSystem_(fileSystem), faults_(faults) {}

  std::vector<IOService> servicesMatchingBSDName(const std::string& name) override;
  std::optional<StorageDevice> wholeDisk(const std::string& name) override;
  std::vector<StorageDevice> physicalDisks(const std::string& name) override;
  std::unique_ptr<DriveStatisticsReader> makeStatisticsReader() override;

  /// The disk is gone; its id is never reused.
  void forget(simulation::DiskId disk) {
    mediaPaths.erase(disk);
    hidden.erase(disk);
  }

  struct Disks {
    StorageDevice whole;
    std::vector<StorageDevice> physical;
  };
  // By BSD name.
  std::map<std::string, std::vector<IOService>> services;
  std::map<std::string, Disks> disks;
  // Drivers by path.
  std::map<std::string, std::optional<DriverCounters>> drivers;
  std::map<simulation::DiskId, std::string> mediaPaths;
  std::set<simulation::DiskId> hidden;
  std::size_t questions = 0;

 private:
  class Reader;
  /// The drivers, and the media of the volumes that are mounted now.
  DriveStatistics presentStatistics() const;

  const SimulatedFileSystem& fileSystem_;
  simulation::ArmedFaults& faults_;
};

}  // namespace kmv::simulated
