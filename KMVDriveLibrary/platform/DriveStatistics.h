// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/URL.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kmv {

/// The counters of a block-storage driver, sums since it was attached. Latencies in nanoseconds.
struct DriverCounters {
  std::uint64_t bytesRead = 0;
  std::uint64_t bytesWritten = 0;
  std::uint64_t readLatency = 0;
  std::uint64_t writeLatency = 0;
};

/// One look at the block-storage drivers and at the media behind the mounted volumes.
struct DriveStatistics {
  struct Driver {
    std::string path;  ///< unique; in the platform's registry; a media path that begins with it is of one of
                       ///< its media
    std::optional<DriverCounters> counters;  ///< none: it publishes no statistics
  };
  struct Volume {
    URL url;
    std::string mediaPath;  ///< empty: no disk, or none with a place in the registry
  };

  bool wereDriversFound = false;  ///< false: the look-up of the drivers failed, and nothing else here counts
  /// While it stays, drivers and volumes are the same as at the last look, in the same order, and so are
  /// their paths.
  std::uint64_t generation = 0;
  std::vector<Driver> drivers;
  std::vector<Volume> volumes;  ///< those that users see, in the order of the mount table
};

/// Reads them again and again. Thread: one at a time.
class DriveStatisticsReader {
 public:
  virtual ~DriveStatisticsReader() = default;

  /// Brings `statistics`, the same object each time, up to date. `port` is the platform's port for the
  /// look-up. Touches no volume, opens no device and wakes no disk.
  virtual void read(std::uint32_t port, DriveStatistics& statistics) = 0;
};

}  // namespace kmv
