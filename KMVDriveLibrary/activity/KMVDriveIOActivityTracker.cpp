// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVDriveIOActivityTracker.h>

#include <utility>

namespace {

/// What one counter did; null when it stayed. A step back wraps around: intended.
KMVDriveIOActivity::Delta deltaOf(std::uint64_t later, std::uint64_t earlier, double elapsed) {
  return later == earlier ? nullptr : std::make_shared<KMVDriveActivityDelta>(elapsed, later - earlier);
}

/// Null when nothing moved, or no time passed.
std::shared_ptr<KMVDriveIOActivity> activityBetween(const DeviceIOStatistics& earlier,
                                                    const DeviceIOStatistics& later) {
  const auto from = earlier.timeStamp(), to = later.timeStamp();
  if (!from || !to) return nullptr;
  const double elapsed = to->secondsSinceReferenceDate - from->secondsSinceReferenceDate;
  if (!(elapsed > 0)) return nullptr;  // the wall clock can go back
  auto read = deltaOf(later.bytesRead(), earlier.bytesRead(), elapsed);
  auto written = deltaOf(later.bytesWritten(), earlier.bytesWritten(), elapsed);
  if (read == nullptr && written == nullptr) return nullptr;
  return std::make_shared<KMVDriveIOActivity>(std::move(read), std::move(written));
}

}  // namespace

KMVDriveIOActivityTracker::KMVDriveIOActivityTracker() = default;
KMVDriveIOActivityTracker::~KMVDriveIOActivityTracker() = default;

void KMVDriveIOActivityTracker::setTrackingId(std::optional<std::string> id) {
  trackingId_.set(std::move(id));
}

void KMVDriveIOActivityTracker::updateStats(const Sample& stats, const kmv::URL& forDrive) {
  updateStats(stats, forDrive, std::nullopt);
}

void KMVDriveIOActivityTracker::updateStats(const Sample& stats, const kmv::URL& forDrive,
                                            const std::optional<std::string>& trackingId) {
  if (stats == nullptr) return;
  const bool isAnother = trackingId && trackingId != this->trackingId();  // none at all is never a change
  setTrackingId(trackingId);
  const auto previous = cachedIOStatistics()->set(forDrive, stats);
  if (!previous || *previous == nullptr || isAnother) return;
  if (auto activity = activityBetween(**previous, *stats))
    activityLookup()->set(forDrive.standardized(), std::move(activity));
}
