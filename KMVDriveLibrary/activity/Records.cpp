// SPDX-License-Identifier: MIT
// The values in which activity is told.
#include <KMVDriveLibrary/DeviceIOStatistics.h>
#include <KMVDriveLibrary/KMVDriveActivityDelta.h>
#include <KMVDriveLibrary/KMVDriveIOActivity.h>

#include <string_view>

#include "platform/Platform.h"

namespace {

/// A signed number kept in an unsigned one; 0 without one.
std::uint64_t counterUnder(const kmv::Dictionary& statistics, std::string_view key) {
  const kmv::Value* value = statistics.find(key);
  return value == nullptr ? 0 : static_cast<std::uint64_t>(value->integerValue());
}

constexpr std::uint64_t kFirstStepBack = std::uint64_t{1} << 63;

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

KMVDriveActivityDelta::KMVDriveActivityDelta(double elapsedTime, std::uint64_t delta)
    : elapsedTime_(elapsedTime), byteDelta_(delta) {}
KMVDriveActivityDelta::~KMVDriveActivityDelta() = default;

KMVDriveIOActivity::KMVDriveIOActivity(Delta readDelta, Delta writeDelta)
    : readDelta_(std::move(readDelta)), writeDelta_(std::move(writeDelta)) {}
KMVDriveIOActivity::~KMVDriveIOActivity() = default;

namespace kmv {

std::optional<std::uint64_t> bytesMoved(const KMVDriveActivityDelta& delta) {
  const std::uint64_t bytes = delta.byteDelta();
  return bytes >= kFirstStepBack ? std::nullopt : std::optional(bytes);
}

std::optional<double> bytesPerSecond(const KMVDriveActivityDelta& delta) {
  const auto bytes = bytesMoved(delta);
  const double seconds = delta.elapsedTime();
  if (!bytes || !(seconds > 0)) return std::nullopt;
  return static_cast<double>(*bytes) / seconds;
}

}  // namespace kmv
