// SPDX-License-Identifier: MIT
// What hosts report of drives that the platform cannot measure.
#include <KMVDriveLibrary/KMVDriveActivityMonitor.h>
#include <KMVDriveLibrary/host/CrossAppKit.h>
#include <KMVDriveLibrary/host/OrvaneLogging.h>

#include <map>
#include <memory>
#include <string>
#include <utility>

#include "activity/RootDrive.h"
#include "platform/Platform.h"

namespace {

constexpr char kTrackingServiceSender[] = "KMVDAM_notification";

using Record = std::shared_ptr<DeviceIOStatistics>;
/// One drive's records by sender, enumerated in ascending order of the senders.
using RecordsBySender = std::map<std::string, Record>;

/// Among several senders the one enumerated last whose time, and that of the one before, is known; so in
/// effect the last. Neither the newest nor the oldest is looked for: intended.
RecordsBySender::const_iterator chosenAmong(const RecordsBySender& records) {
  auto candidate = records.begin();
  for (auto other = std::next(candidate); other != records.end(); ++other) {
    const bool hasEarlierDate = candidate->second->timeStamp() && other->second->timeStamp();
    if (hasEarlierDate) candidate = other;
  }
  return candidate;
}

/// Created once for the process. Concurrent: updates may overtake each other.
kmv::ConcurrentQueue& updateQueue() {
  static auto* const queue =
      new std::shared_ptr<kmv::ConcurrentQueue>(kmv::Platform::current().queues().makeConcurrentQueue(
          "applicationUpdatesActivityUpdateQueue", kmv::QualityOfService::userInteractive));
  return **queue;
}

void report(KMVDriveActivityMonitor& monitor, const IOActivityUpdate& update) {
  const auto* const ofURL = dynamic_cast<const URLActivityUpdate*>(&update);
  if (ofURL == nullptr) {
    OrvaneLog::defaultLog().logDebug("Could not get drive speed info form update. Unexpected Update type.");
    return;
  }
  if (ofURL->bytesRead > 0) {
    monitor.appBytesWereReadOnFile(static_cast<std::uint64_t>(ofURL->bytesRead), ofURL->url,
                                   kTrackingServiceSender);
  }
  if (ofURL->bytesWritten > 0) {
    monitor.appBytesWereWrittenOnFile(static_cast<std::uint64_t>(ofURL->bytesWritten), ofURL->url,
                                      kTrackingServiceSender);
  }
}

}  // namespace

void KMVDriveActivityMonitor::appBytesWereUpdatedOnDrive(std::uint64_t bytes, const kmv::URL& drive,
                                                         std::string_view by, bool wasReadIO) {
  enqueue([this, bytes, drive, sender = std::string(by), wasReadIO] {
    addReport(bytes, drive, sender, wasReadIO);
  });
}

void KMVDriveActivityMonitor::addReport(std::uint64_t bytes, const kmv::URL& drive, const std::string& sender,
                                        bool wasReadIO) {
  const kmv::URL key = drive.standardized();
  if (ioServicesIsTrackingDrive(key)) return;  // measured in the latest cycle: not to be counted twice
  const std::uint64_t read = wasReadIO ? bytes : 0, written = wasReadIO ? 0 : bytes;
  const auto senders = appIOLookup();
  auto totals = senders->find(sender).value_or(nullptr);
  if (totals == nullptr) {
    totals = std::make_shared<Totals>();
    senders->set(sender, totals);
  }
  const auto record = totals->find(key).value_or(nullptr);
  if (record == nullptr) {
    totals->set(key, std::make_shared<DeviceIOStatistics>(read, written));
    return;
  }
  record->setBytesRead(record->bytesRead() + read);
  record->setBytesWritten(record->bytesWritten() + written);
  record->setTimeStamp(kmv::Platform::current().clock().now());
}

void KMVDriveActivityMonitor::appBytesWereUpdatedOnFile(std::uint64_t bytes, const kmv::URL& file,
                                                        std::string_view by, bool wasReadIO) {
  enqueue([this, bytes, file, sender = std::string(by), wasReadIO] {
    const auto drive = kmv::activity::rootDriveOf(file);
    if (drive) appBytesWereUpdatedOnDrive(bytes, drive->standardized(), sender, wasReadIO);
  });
}

void KMVDriveActivityMonitor::appBytesWereReadOnDrive(std::uint64_t bytes, const kmv::URL& drive,
                                                      std::string_view by) {
  appBytesWereUpdatedOnDrive(bytes, drive, by, /*wasReadIO=*/true);
}
void KMVDriveActivityMonitor::appBytesWereWrittenOnDrive(std::uint64_t bytes, const kmv::URL& drive,
                                                         std::string_view by) {
  appBytesWereUpdatedOnDrive(bytes, drive, by, /*wasReadIO=*/false);
}
void KMVDriveActivityMonitor::appBytesWereReadOnFile(std::uint64_t bytes, const kmv::URL& file,
                                                     std::string_view by) {
  appBytesWereUpdatedOnFile(bytes, file, by, /*wasReadIO=*/true);
}
void KMVDriveActivityMonitor::appBytesWereWrittenOnFile(std::uint64_t bytes, const kmv::URL& file,
                                                        std::string_view by) {
  appBytesWereUpdatedOnFile(bytes, file, by, /*wasReadIO=*/false);
}

void KMVDriveActivityMonitor::stopMonitoringAppDriveIOUpdatesFromSender(std::string_view sender) {
  enqueue([this, sender = std::string(sender)] {
    appIOLookup()->remove(sender);
    const auto tracker = appTracker();
    if (tracker->trackingId() == sender) tracker->setTrackingId(std::nullopt);
  });
}

void KMVDriveActivityMonitor::refreshAppSuppliedIOStatistics() {
  const auto tracker = appTracker();
  tracker->activityLookup()->removeAll();
  std::map<kmv::URL, RecordsBySender> drives;
  for (const auto& [sender, totals] : appIOLookup()->snapshot()) {
    if (totals == nullptr) continue;
    for (auto& [drive, record] : totals->snapshot()) {
      if (record != nullptr) drives[drive].emplace(sender, std::move(record));
    }
  }
  for (const auto& [drive, records] : drives) {
    const auto& [sender, record] = *chosenAmong(records);
    // As of now, not of the latest report.
    const auto sample = std::make_shared<DeviceIOStatistics>(record->bytesRead(), record->bytesWritten());
    tracker->updateStats(sample, drive, sender);
  }
}

void KMVDriveActivityMonitor::listenForApplicationDriveSpeedUpdates() {
  if (listensForUpdates_.exchange(true)) return;
  ApplicationIOTrackingDelegate::shared().addUpdateHandler(
      [this, open = openWork_.open()](const std::shared_ptr<const IOActivityUpdate>& update) {
        updateQueue().async([this, update] {
          if (update != nullptr) report(*this, *update);
        });
      });
}
