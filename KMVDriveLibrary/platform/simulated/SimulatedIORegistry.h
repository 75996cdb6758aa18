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

  void setDriver(const std::string& path, std::optional<DriverCounters> counters) {
    if (drivers_.insert_or_assign(path, counters).second) ++version_;
  }
  void removeDriver(const std::string& path) { version_ += drivers_.erase(path); }
  void setMediaPath(simulation::DiskId disk, const std::string& path) {
    mediaPaths_[disk] = path;
    ++version_;
  }
  void hide(simulation::DiskId disk) {
    hidden_.insert(disk);
    ++version_;
  }
  /// The disk is gone; its id is never reused.
  void forget(simulation::DiskId disk) {
    mediaPaths_.erase(disk);
    hidden_.erase(disk);
    ++version_;
  }

  struct Disks {
    StorageDevice whole;
    std::vector<StorageDevice> physical;
  };
  // By BSD name.
  std::map<std::string, std::vector<IOService>> services;
  std::map<std::string, Disks> disks;
  std::size_t questions = 0;

 private:
  class Reader;
  /// What drivers, media and volumes there are: other numbers when that may have changed.
  std::pair<std::uint64_t, std::uint64_t> places() const {
    return {version_, fileSystem_.mounts().version()};
  }
  /// The drivers, and the media of the volumes that are mounted now.
  void readPlaces(DriveStatistics& statistics) const;

  std::map<std::string, std::optional<DriverCounters>> drivers_;  // by path
  std::map<simulation::DiskId, std::string> mediaPaths_;
  std::set<simulation::DiskId> hidden_;
  std::uint64_t version_ = 1;
  const SimulatedFileSystem& fileSystem_;
  simulation::ArmedFaults& faults_;
};

}  // namespace kmv::simulated
