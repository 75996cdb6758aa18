// SPDX-License-Identifier: MIT
#include "kmvdrive/ActivityFeed.h"

#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/Queue.h>

#include <cstdint>
#include <utility>

namespace kmv::tool {
namespace {

/// So many cycles of a monitor announce nothing.
constexpr std::uint64_t kSilentCycles = 5;

}  // namespace

ActivityFeed::ActivityFeed(Hear hear) : hear_(std::make_shared<const Hear>(std::move(hear))) {
  registration_ = NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterDriveActivityDidUpdateNotification,
      [weak = std::weak_ptr<const Hear>(hear_)](const Notification& notification) {
        mainQueue().async([weak, activities = driveActivities(notification)] {
          if (const auto listener = weak.lock()) (*listener)(activities);
        });
      });
  // Counted as if they had been. The first cycle has nothing to compare with; the second covers a whole
  // second.
  KMVDriveActivityMonitor::defaultMonitor().setLoadCycles(kSilentCycles);
}

Measure measureOfDrive(const URL& standardized) {
  const auto& monitor = KMVDriveActivityMonitor::defaultMonitor();
  if (monitor.ioServiceTracker()->cachedIOStatistics()->contains(standardized)) return Measure::byPlatform;
  return monitor.appTracker()->cachedIOStatistics()->contains(standardized) ? Measure::byReports
                                                                            : Measure::notAtAll;
}

}  // namespace kmv::tool
