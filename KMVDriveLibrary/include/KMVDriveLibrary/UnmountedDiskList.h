// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/Value.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <string_view>
#include <utility>
#include <vector>

namespace kmv {

/// Posted on the main queue after a list of unmounted disks has gained or lost one, with its description as the object.
/// A disk that is mounted is lost here, and announced as a new drive.
inline constexpr std::string_view kUnmountedDiskAddedNotification = "kmvUnmountedDiskAdded";
inline constexpr std::string_view kUnmountedDiskRemovedNotification = "kmvUnmountedDiskRemoved";

/// Descriptions of disks that could be mounted but are not.
/// Enumeration order: order of insertion.
/// Threads: every member may be called from any thread.
class KMV_EXPORT UnmountedDiskList {
 public:
  /// Null is ignored.
  void append(DictionarySnapshot description);

  /// Removes and returns the first description whose "DAAppearanceTime" equals `time` as a double (absent
  /// reads as 0); null when there is none.
  /// O(log n).
  DictionarySnapshot takeFirstWithAppearanceTime(double time);

  std::size_t count() const;
  std::vector<DictionarySnapshot> snapshot() const;

 private:
  mutable Mutex mutex_;
  std::map<std::uint64_t, DictionarySnapshot> entries_ KMV_GUARDED_BY(mutex_);
  std::set<std::pair<double, std::uint64_t>> byAppearanceTime_ KMV_GUARDED_BY(mutex_);
  std::uint64_t next_ KMV_GUARDED_BY(mutex_) = 0;
};

}  // namespace kmv
