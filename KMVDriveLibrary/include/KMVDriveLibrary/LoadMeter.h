// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DriverCounters.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>

namespace kmv {

class DriveStatisticsReader;
struct DriveStatistics;

/// What a disk did in a stretch of time.
struct DriveLoad {
  double seconds = 0;  ///< the length of that time, on the monotonic clock
  std::uint64_t bytesRead = 0;
  std::uint64_t bytesWritten = 0;
  std::uint64_t reads = 0;  ///< operations that ended
  std::uint64_t writes = 0;
  double readWait = 0;  ///< seconds that a read took on average, queues included; 0 without any
  double writeWait = 0;
  /// The share of the time in which the disk had something to do, 0 to 1; none where the platform does not count it
  /// (macOS). A disk that serves many requests at once can do more when it is 1.
  std::optional<double> utilisation;
};

/// Measures what drives did between two moments of the caller's choice, without the silent cycles of
/// `KMVDriveActivityMonitor` and beside it.
/// A drive has the figures of the whole disk right below it, which it may share with other drives.
/// Cost: one read of each disk's counters; no device is opened and no volume asked.
/// Threads: one at a time.
class KMV_EXPORT LoadMeter {
 public:
  /// Takes the first sample.
  LoadMeter();
  ~LoadMeter();
  LoadMeter(const LoadMeter&) = delete;
  LoadMeter& operator=(const LoadMeter&) = delete;

  struct Loads {
    std::map<URL, DriveLoad> drives;  ///< by mount URL; without those that came since, or cannot be measured
    /// Of the physical disks below all these drives, each counted once; times are sums, `utilisation` is that of the
    /// busiest.
    DriveLoad allDisks;
  };
  /// What happened since the last call, or since this was made.
  Loads read();

 private:
  struct Sample;
  static Loads loadsBetween(const Sample& before, const Sample& now);

  const std::unique_ptr<DriveStatisticsReader> reader_;
  const std::unique_ptr<DriveStatistics> statistics_;
  std::unique_ptr<Sample> last_;
};

}  // namespace kmv
