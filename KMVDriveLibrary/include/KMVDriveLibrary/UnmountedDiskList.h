// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <utility>
#include <vector>

namespace kmv {

/// Descriptions of disks that could be mounted but are not, shared between threads.
/// Enumeration order: order of insertion. Threads: every member may be called from any thread.
class KMV_EXPORT UnmountedDiskList {
 public:
  void append(DictionarySnapshot description);

  /// Takes out the first description whose "DAAppearanceTime" equals `time` as a double (an absent one reads
  /// as 0); null when there is none. Costs a look-up, not a walk.
  DictionarySnapshot takeFirstWithAppearanceTime(double time);

  std::size_t count() const;
  std::vector<DictionarySnapshot> snapshot() const;

 private:
  mutable std::mutex mutex_;
  std::map<std::uint64_t, DictionarySnapshot> entries_;
  std::set<std::pair<double, std::uint64_t>> byAppearanceTime_;
  std::uint64_t next_ = 0;
};

}  // namespace kmv
