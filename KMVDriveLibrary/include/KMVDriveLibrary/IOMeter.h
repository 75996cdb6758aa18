// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

namespace kmv {

/// Reports what a copy loop moves to the activity monitor, for a drive that the platform cannot measure:
///
///   kmv::IOMeter meter(destination, "com.example.copier");
///   while (copyABlock()) meter.wrote(blockSize);
///
/// Use one sender's name for the whole process: by the library's contract the monitor compares the reports of
/// one sender at a time, so several that report in the same second hide each other's figures.
/// `stopMonitoringAppDriveIOUpdatesFromSender` forgets a sender that has finished.
///
/// Cheap in a loop: looks the file's drive up once, in the constructor, and reports a few times a second
/// (rate-limited) and in the destructor.
/// Threads: not thread-safe; use a meter on one thread at a time.
class KMV_EXPORT IOMeter {
 public:
  /// For the drive that holds `file`, which need not exist yet; a meter for a path on no drive counts
  /// nothing.
  /// Waits for the registry like `findRootDriveURLForPathURL`.
  IOMeter(const URL& file, std::string sender);
  ~IOMeter();
  IOMeter(const IOMeter&) = delete;
  IOMeter& operator=(const IOMeter&) = delete;

  void read(std::uint64_t bytes);
  void wrote(std::uint64_t bytes);
  /// Reports now what was counted since the last report.
  void report();

 private:
  void reportNowAndThen();

  std::optional<URL> drive_;
  std::string sender_;
  std::uint64_t bytesRead_ = 0;
  std::uint64_t bytesWritten_ = 0;
  std::chrono::nanoseconds lastReport_;  // on the platform's monotonic clock
};

}  // namespace kmv
