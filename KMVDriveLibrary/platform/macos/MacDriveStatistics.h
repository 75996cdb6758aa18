// SPDX-License-Identifier: MIT
#pragma once

#include <DiskArbitration/DiskArbitration.h>

#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "platform/DriveStatistics.h"
#include "platform/macos/CF.h"

namespace kmv::macos {

/// Counts the block-storage drivers. Paths are kept by the number of their entry, which is never given twice;
/// the media behind the volumes are looked up again when mounts or drivers came or went.
class MacDriveStatistics final : public DriveStatisticsReader {
 public:
  MacDriveStatistics() : session_(CF<DASessionRef>::adopt(DASessionCreate(kCFAllocatorDefault))) {}

  void read(std::uint32_t port, DriveStatistics& statistics) override;

 private:
  /// Tells one mount from the next at the same place.
  using Mount = std::tuple<std::int32_t, std::int32_t, std::string, std::string>;

  void readDrivers(const std::vector<IOHandle>& entries, DriveStatistics& statistics);
  void readVolumes(DriveStatistics& statistics);
  std::string mediaPathOf(const URL& volume) const;

  const CF<DASessionRef> session_;  // of its own, never with a queue
  std::map<std::uint64_t, std::string> paths_;
  std::vector<Mount> mounts_;
  bool areDriversNew_ = true;
  std::uint64_t generation_ = 0;
  std::vector<DriveStatistics::Volume> volumes_;
};

}  // namespace kmv::macos
