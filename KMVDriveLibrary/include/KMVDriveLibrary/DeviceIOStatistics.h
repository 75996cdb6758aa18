// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

#include <atomic>
#include <cstdint>
#include <optional>

/// One sample of a drive's counters, each counted from an unspecified start.
/// Threads: every member may be called from any thread.
class KMV_EXPORT DeviceIOStatistics : public kmv::Object {
 public:
  /// From the statistics that the platform publishes for a block-storage driver: "Bytes (Read)", "Bytes
  /// (Write)", "Latency Time (Read)", "Latency Time (Write)", each read as a signed number, 0 when absent;
  /// the time stamp is now.
  /// Selector: initWithStatisticsDictionary:
  explicit DeviceIOStatistics(const kmv::Dictionary& statisticsDictionary);
  /// Without latencies; the time stamp is now.
  /// Selector: initWithBytesRead:bytesWritten:
  DeviceIOStatistics(std::uint64_t bytesRead, std::uint64_t bytesWritten);
  ~DeviceIOStatistics() override;

  /// Bytes.
  std::uint64_t bytesRead() const { return bytesRead_; }
  void setBytesRead(std::uint64_t bytes) { bytesRead_ = bytes; }
  std::uint64_t bytesWritten() const { return bytesWritten_; }
  void setBytesWritten(std::uint64_t bytes) { bytesWritten_ = bytes; }
  /// Nanoseconds, as the platform reports them; 0 for a sample made of byte counts.
  std::uint64_t readLatency() const { return readLatency_; }
  void setReadLatency(std::uint64_t latency) { readLatency_ = latency; }
  std::uint64_t writeLatency() const { return writeLatency_; }
  void setWriteLatency(std::uint64_t latency) { writeLatency_ = latency; }
  /// When the sample was taken, on the wall clock.
  std::optional<kmv::Date> timeStamp() const { return timeStamp_.get(); }
  void setTimeStamp(std::optional<kmv::Date> time) { timeStamp_.set(time); }

 private:
  std::atomic<std::uint64_t> bytesRead_{0};
  std::atomic<std::uint64_t> bytesWritten_{0};
  std::atomic<std::uint64_t> readLatency_{0};
  std::atomic<std::uint64_t> writeLatency_{0};
  kmv::AtomicProperty<std::optional<kmv::Date>> timeStamp_;
};
