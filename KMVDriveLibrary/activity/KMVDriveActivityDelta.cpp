// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVDriveActivityDelta.h>

namespace {

/// Differences from here on are counters that went back: the subtraction wrapped around.
constexpr std::uint64_t kFirstStepBack = std::uint64_t{1} << 63;

}  // namespace

KMVDriveActivityDelta::KMVDriveActivityDelta(double elapsedTime, std::uint64_t delta)
    : elapsedTime_(elapsedTime), byteDelta_(delta) {}
KMVDriveActivityDelta::~KMVDriveActivityDelta() = default;

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
