// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

#include <atomic>
#include <cstdint>
#include <optional>

/// How far one counter advanced between two samples.
/// Threads: every member may be called from any thread.
class KMV_EXPORT KMVDriveActivityDelta : public kmv::Object {
 public:
  /// Selector: initWithElapsedTime:delta:
  KMVDriveActivityDelta(double elapsedTime, std::uint64_t delta);
  ~KMVDriveActivityDelta() override;

  /// Seconds from one sample to the other; more than 0 in what the tracker makes.
  double elapsedTime() const { return elapsedTime_; }
  void setElapsedTime(double seconds) { elapsedTime_ = seconds; }
  /// The later counter minus the earlier one, modulo 2^64: a counter that decreased gives a huge number, on
  /// purpose.
  /// To show a rate, take `kmv::bytesPerSecond`.
  std::uint64_t byteDelta() const { return byteDelta_; }
  void setByteDelta(std::uint64_t bytes) { byteDelta_ = bytes; }

 private:
  std::atomic<double> elapsedTime_;
  std::atomic<std::uint64_t> byteDelta_;
};

namespace kmv {

/// The bytes of a delta; none for a counter that decreased (a delta of 2^63 or more), as when another disk
/// took a drive's place.
KMV_EXPORT std::optional<std::uint64_t> bytesMoved(const KMVDriveActivityDelta& delta);

/// The delta in bytes per second; none for a counter that decreased, and when no time passed.
KMV_EXPORT std::optional<double> bytesPerSecond(const KMVDriveActivityDelta& delta);

}  // namespace kmv
