// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>

namespace kmv {

/// What a block-storage driver has counted since it was attached.
struct DriverCounters {
  std::uint64_t bytesRead = 0;
  std::uint64_t bytesWritten = 0;
  std::uint64_t readLatency = 0;   ///< nanoseconds, summed over all reads
  std::uint64_t writeLatency = 0;  ///< nanoseconds, summed over all writes
  std::uint64_t reads = 0;         ///< operations
  std::uint64_t writes = 0;
  std::optional<std::uint64_t> busy = {};  ///< nanoseconds with anything to do; none where it is not counted
};

}  // namespace kmv
