// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

/// What the kernel counts of a block device.
struct BlockStatistics {
  std::uint64_t sectorsRead = 0;  ///< of 512 bytes, whatever the device's own block is
  std::uint64_t millisecondsReading = 0;
  std::uint64_t sectorsWritten = 0;
  std::uint64_t millisecondsWriting = 0;
  std::uint64_t reads = 0;
  std::uint64_t writes = 0;
  std::uint64_t millisecondsBusy = 0;
  friend bool operator==(const BlockStatistics&, const BlockStatistics&) = default;
};

/// The text of /sys/block/X/stat; none when it is cut short.
std::optional<BlockStatistics> parseBlockStatistics(std::string_view text);

/// One line of /proc/diskstats.
struct DiskStatisticsLine {
  DeviceNumber number;
  BlockStatistics statistics;
};

/// Consumes the first line of `text`, the text of /proc/diskstats; none at the end. A malformed line is
/// skipped.
std::optional<DiskStatisticsLine> takeDiskStatisticsLine(std::string_view& text);

}  // namespace kmv
