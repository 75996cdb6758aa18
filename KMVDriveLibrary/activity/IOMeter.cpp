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

IOMeter::IOMeter(const URL& file, std::string sender)
    : drive_(activity::rootDriveOf(file)),
      sender_(std::move(sender)),
      lastReport_(Platform::current().clock().monotonicNow()) {}

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
  if (Platform::current().clock().monotonicNow() - lastReport_ >= kBetweenReports) report();
}

void IOMeter::report() {
  lastReport_ = Platform::current().clock().monotonicNow();
  if (!drive_) return;
  auto& monitor = KMVDriveActivityMonitor::defaultMonitor();
  if (const std::uint64_t bytes = std::exchange(bytesRead_, 0))
    monitor.appBytesWereReadOnDrive(bytes, *drive_, sender_);
  if (const std::uint64_t bytes = std::exchange(bytesWritten_, 0))
    monitor.appBytesWereWrittenOnDrive(bytes, *drive_, sender_);
}

}  // namespace kmv
