// SPDX-License-Identifier: MIT
#include "kmvdrive/ActivityFeed.h"

#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/Queue.h>

#include <chrono>
#include <utility>

namespace kmv::tool {
namespace {

constexpr std::uint64_t kSilentCycles = 5;
constexpr std::chrono::milliseconds kBetweenLooks{5};

}  // namespace

ActivityFeed::ActivityFeed(Hear hear) : hear_(std::make_shared<const Hear>(std::move(hear))) {
  registration_ = NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterDriveActivityDidUpdateNotification,
      [weak = std::weak_ptr<const Hear>(hear_)](const Notification& notification) {
        mainQueue().async([weak, activities = driveActivities(notification)] {
          if (const auto listener = weak.lock()) (*listener)(activities);
        });
      });
  KMVDriveActivityMonitor::defaultMonitor().setRefreshFrequency(0);
  passSilentCycles();
}

/// Without a pause the cycles take no time; the pause comes back before the first one that is announced.
void ActivityFeed::passSilentCycles() {
  auto& monitor = KMVDriveActivityMonitor::defaultMonitor();
  if (monitor.loadCycles() >= kSilentCycles) {
    monitor.setRefreshFrequency(1);
  } else {
    monitor.driveAnalysisQueue()->after(kBetweenLooks, passSilentCycles);
  }
}

Measure measureOfDrive(const URL& standardized) {
  const auto& monitor = KMVDriveActivityMonitor::defaultMonitor();
  if (monitor.ioServiceTracker()->cachedIOStatistics()->contains(standardized)) return Measure::byPlatform;
  return monitor.appTracker()->cachedIOStatistics()->contains(standardized) ? Measure::byReports
                                                                            : Measure::notAtAll;
}

}  // namespace kmv::tool
