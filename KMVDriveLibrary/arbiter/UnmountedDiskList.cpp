// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/UnmountedDiskList.h>

#include <cmath>

#include "arbiter/Announcing.h"

namespace kmv {

void UnmountedDiskList::append(DictionarySnapshot description) {
  if (description == nullptr) return;
  const double time = description->doubleValue(key::kAppearanceTime);
  const MutexLock lock(mutex_);
  if (!std::isnan(time)) byAppearanceTime_.emplace(time, next_);  // NaN equals no time
  entries_.emplace(next_++, description);
  announceOnMainQueue(kUnmountedDiskAddedNotification, std::move(description));
}

DictionarySnapshot UnmountedDiskList::takeFirstWithAppearanceTime(double time) {
  const MutexLock lock(mutex_);
  const auto it = byAppearanceTime_.lower_bound({time, 0});
  if (std::isnan(time) || it == byAppearanceTime_.end() || it->first != time) return nullptr;
  const auto entry = entries_.find(it->second);
  DictionarySnapshot description = std::move(entry->second);
  entries_.erase(entry);
  byAppearanceTime_.erase(it);
  announceOnMainQueue(kUnmountedDiskRemovedNotification, description);
  return description;
}

std::size_t UnmountedDiskList::count() const {
  const MutexLock lock(mutex_);
  return entries_.size();
}

std::vector<DictionarySnapshot> UnmountedDiskList::snapshot() const {
  const MutexLock lock(mutex_);
  std::vector<DictionarySnapshot> all;
  all.reserve(entries_.size());
  for (const auto& [position, description] : entries_) all.push_back(description);
  return all;
}

}  // namespace kmv
