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
/// Cheap in a loop: looks the file's drive up once, lazily, at the first report, and reports a few times a
/// second (rate-limited, on the platform's monotonic clock) and in the destructor.
/// A meter that counted nothing starts neither the registry nor the monitor.
/// Threads: not thread-safe; use a meter on one thread at a time.
class KMV_EXPORT IOMeter {
 public:
  /// For the drive that holds `file`, which need not exist yet; a meter for a path on no drive counts
  /// nothing.
  /// Asks nobody and starts nothing.
  IOMeter(URL file, std::string sender);
  ~IOMeter();
  IOMeter(const IOMeter&) = delete;
  IOMeter& operator=(const IOMeter&) = delete;

  void read(std::uint64_t bytes);
  void wrote(std::uint64_t bytes);
  /// Reports now what was counted since the last report; nothing when nothing was.
  /// The first report of a meter waits for the registry like `findRootDriveURLForPathURL`.
  void report();

 private:
  void reportNowAndThen();

  URL file_;
  std::string sender_;
  bool hasLookedUp_ = false;
  std::optional<URL> drive_;
  std::uint64_t bytesRead_ = 0;
  std::uint64_t bytesWritten_ = 0;
  std::optional<std::chrono::nanoseconds> lastReport_;  // at first: the first count
};

}  // namespace kmv
