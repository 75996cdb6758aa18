// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/KMVDriveActivityMonitor.h>
#include <KMVDriveLibrary/NotificationCenter.h>

#include <functional>
#include <memory>

#include "kmvdrive/ActivityBoard.h"

namespace kmv::tool {

/// Starts the activity monitor and brings what it announces to the main queue, for as long as this lives.
///
/// The first figures come after a second, not after the silent cycles of a monitor.
class ActivityFeed {
 public:
  using Hear = std::function<void(const ActivityBoard::Activities& activities)>;

  explicit ActivityFeed(Hear hear);

 private:
  std::shared_ptr<const Hear> hear_;
  NotificationCenter::Registration registration_;
};

/// How the monitor comes to figures of the drive of this URL.
Measure measureOfDrive(const URL& standardized);

}  // namespace kmv::tool
