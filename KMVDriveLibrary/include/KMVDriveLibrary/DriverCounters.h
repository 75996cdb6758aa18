// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>

namespace kmv {

/// What a block-storage driver has counted since it was attached.
struct DriverCounters {
  std::uint64_t bytesRead = 0;
  std::uint64_t bytesWritten = 0;
  std::uint64_t readLatency = 0;   ///< nanoseconds, summed over all reads
  std::uint64_t writeLatency = 0;  ///< nanoseconds, summed over all writes
};

}  // namespace kmv
