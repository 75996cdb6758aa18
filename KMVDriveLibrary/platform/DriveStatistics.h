// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DriverCounters.h>
#include <KMVDriveLibrary/URL.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kmv {

/// A snapshot of the block-storage drivers and of the media behind the mounted volumes.
struct DriveStatistics {
  struct Driver {
    /// Unique path in the platform's registry: the prefix of the paths of its media.
    std::string path;
    /// None when the driver publishes no statistics.
    std::optional<DriverCounters> counters;
  };
  struct Volume {
    URL url;
    /// Empty when the volume has no disk in the registry.
    std::string mediaPath;
  };

  /// False when the look-up of the drivers failed; the rest is meaningless then.
  bool wereDriversFound = false;
  /// Grows when drivers, volumes, their order or their paths may have changed since the last read, so that
  /// callers may cache.
  std::uint64_t generation = 0;
  std::vector<Driver> drivers;
  /// Set by the caller, before the first read: `physicalDisks` are counted too.
  bool countsPhysicalDisks = false;
  /// The physical disks below all drivers, each once, by their names; a driver that is one is among them.
  std::vector<Driver> physicalDisks;
  /// The volumes that users see, in the order of the mount table.
  std::vector<Volume> volumes;
};

/// Reads them repeatedly.
/// Threads: one at a time.
class DriveStatisticsReader {
 public:
  virtual ~DriveStatisticsReader() = default;

  /// Updates `statistics`, the same object each time.
  /// `port` is the platform's port for the look-up.
  /// Touches no volume, opens no device and wakes no disk.
  virtual void read(std::uint32_t port, DriveStatistics& statistics) = 0;
};

}  // namespace kmv
