// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/IOMeter.h>
#include <KMVDriveLibrary/KMVDriveActivityMonitor.h>

#include <utility>

#include "activity/RootDrive.h"
#include "platform/Platform.h"

namespace kmv {
namespace {

/// Between two reports: far less than a cycle, far more than a block takes.
constexpr std::chrono::milliseconds kBetweenReports{100};

}  // namespace

IOMeter::IOMeter(URL file, std::string sender) : file_(std::move(file)), sender_(std::move(sender)) {}

IOMeter::~IOMeter() {
  report();
}

void IOMeter::read(std::uint64_t bytes) {
  bytesRead_ += bytes;
  reportNowAndThen();
}

void IOMeter::wrote(std::uint64_t bytes) {
  bytesWritten_ += bytes;
  reportNowAndThen();
}

void IOMeter::reportNowAndThen() {
  const auto now = Platform::current().clock().monotonicNow();
  if (!lastReport_) lastReport_ = now;
  if (now - *lastReport_ >= kBetweenReports) report();
}

void IOMeter::report() {
  if (bytesRead_ == 0 && bytesWritten_ == 0) return;
  lastReport_ = Platform::current().clock().monotonicNow();
  if (!std::exchange(hasLookedUp_, true)) drive_ = activity::rootDriveOf(file_);
  if (!drive_) return;
  auto& monitor = KMVDriveActivityMonitor::defaultMonitor();
  if (const std::uint64_t bytes = std::exchange(bytesRead_, 0))
    monitor.appBytesWereReadOnDrive(bytes, *drive_, sender_);
  if (const std::uint64_t bytes = std::exchange(bytesWritten_, 0))
    monitor.appBytesWereWrittenOnDrive(bytes, *drive_, sender_);
}

}  // namespace kmv
