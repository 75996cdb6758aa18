// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DeviceIOStatistics.h>

#include <string_view>

#include "platform/Platform.h"

namespace {

/// A negative number modulo 2^64; 0 without one.
std::uint64_t counterUnder(const kmv::Dictionary& statistics, std::string_view key) {
  const kmv::Value* value = statistics.find(key);
  return value == nullptr ? 0 : value->unsignedValue();
}

}  // namespace

DeviceIOStatistics::DeviceIOStatistics(const kmv::Dictionary& statisticsDictionary)
    : bytesRead_(counterUnder(statisticsDictionary, "Bytes (Read)")),
      bytesWritten_(counterUnder(statisticsDictionary, "Bytes (Write)")),
      readLatency_(counterUnder(statisticsDictionary, "Latency Time (Read)")),
      writeLatency_(counterUnder(statisticsDictionary, "Latency Time (Write)")),
      timeStamp_(kmv::Platform::current().clock().now()) {}

DeviceIOStatistics::DeviceIOStatistics(std::uint64_t bytesRead, std::uint64_t bytesWritten)
    : bytesRead_(bytesRead),
      bytesWritten_(bytesWritten),
      timeStamp_(kmv::Platform::current().clock().now()) {}

DeviceIOStatistics::~DeviceIOStatistics() = default;
