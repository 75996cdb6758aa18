// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/DeviceIOStatistics.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/KMVDriveIOActivity.h>
#include <KMVDriveLibrary/LiveCollections.h>
#include <KMVDriveLibrary/RequiredProperty.h>
#include <KMVDriveLibrary/URL.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>

/// Turns samples of counters into deltas from the previous sample, drive by drive.
///
/// Threads: updates are confined to one queue, the monitor's; the dictionaries may be read on any thread
/// meanwhile.
/// Failure: setting one of the two dictionaries to null stops the process with a message.
class KMV_EXPORT KMVDriveIOActivityTracker : public kmv::Object {
 public:
  using Sample = std::shared_ptr<DeviceIOStatistics>;
  using Samples = kmv::LiveDictionary<kmv::URL, Sample>;
  using Activities = kmv::LiveDictionary<kmv::URL, std::shared_ptr<KMVDriveIOActivity>>;

  /// Selector: init
  KMVDriveIOActivityTracker();
  ~KMVDriveIOActivityTracker() override;

  /// The same as below, without an identifier.
  /// Selector: updateStats:forDrive:
  void updateStats(const Sample& stats, const kmv::URL& forDrive);

  /// Compares `stats` with the drive's last sample, stores the deltas in `activityLookup`, and keeps `stats`
  /// as the last sample.
  /// Nothing is compared when there was no last sample, when `trackingId` is given and differs from the present
  /// `trackingId()` (one for the whole tracker, on purpose), or when no time passed.
  /// The identifier given, or none, is the present one from then on.
  /// A null sample changes nothing.
  /// Selector: updateStats:forDrive:trackingId:
  void updateStats(const Sample& stats, const kmv::URL& forDrive,
                   const std::optional<std::string>& trackingId);

  /// The last sample of every drive ever seen, by the URL as it was given; entries are never removed.
  std::shared_ptr<Samples> cachedIOStatistics() const { return cachedIOStatistics_.get(); }
  void setCachedIOStatistics(std::shared_ptr<Samples> samples) {
    cachedIOStatistics_.set(std::move(samples));
  }

  /// What moved since the owner last emptied it, by the drive's standardised URL (`URL::standardized`):
  /// another key than the one above, on purpose.
  std::shared_ptr<Activities> activityLookup() const { return activityLookup_.get(); }
  void setActivityLookup(std::shared_ptr<Activities> activities) {
    activityLookup_.set(std::move(activities));
  }

  /// The present identifier: that of the last update, none when that gave none, unless the setter was called
  /// since.
  std::optional<std::string> trackingId() const { return trackingId_.get(); }
  void setTrackingId(std::optional<std::string> id);

 private:
  kmv::RequiredProperty<std::shared_ptr<Samples>> cachedIOStatistics_{
      "KMVDriveIOActivityTracker: cachedIOStatistics", std::make_shared<Samples>()};
  kmv::RequiredProperty<std::shared_ptr<Activities>> activityLookup_{
      "KMVDriveIOActivityTracker: activityLookup", std::make_shared<Activities>()};
  kmv::AtomicProperty<std::optional<std::string>> trackingId_;
};
