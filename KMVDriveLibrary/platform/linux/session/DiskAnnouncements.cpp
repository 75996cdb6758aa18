// SPDX-License-Identifier: MIT
#include "platform/linux/session/DiskAnnouncements.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <algorithm>
#include <utility>

#include "base/DifferingKeys.h"

namespace kmv {

void DiskAnnouncements::appeared(AnnouncedDisk& disk, Dictionary description, const MountEntry* mount) {
  disk.told = disk.baseline = std::move(description);
  noteMounted(disk.told, mount);
  events_.push_back({DiskEvent::Kind::appeared, disk.told, {}});
}

void DiskAnnouncements::changed(AnnouncedDisk& disk, Dictionary now, const MountEntry* mount) {
  ChangedKeys sinceTold = differingKeys(disk.told, now);
  if (sinceTold.empty()) return noteMounted(disk.told, mount);  // it may be another mount of the same
  const bool pathChanged = std::find(sinceTold.begin(), sinceTold.end(), key::kVolumePath) != sinceTold.end();
  if (isToReappear(disk, pathChanged)) {
    disappeared(disk);
    return appeared(disk, std::move(now), mount);
  }
  // Whoever heard only of paths is told everything that differs since then; a value that came back counts as
  // changed too where nothing else is left to tell.
  ChangedKeys keys = differingKeys(disk.baseline, now);
  if (keys.empty()) keys = std::move(sinceTold);
  noteUnmounted(disk.told);
  noteMounted(now, mount);
  disk.told = now;
  if (pathChanged) disk.baseline = now;
  events_.push_back({DiskEvent::Kind::changed, std::move(now), std::move(keys)});
}

bool DiskAnnouncements::isToReappear(const AnnouncedDisk& disk, bool pathChanged) {
  const bool wasMounted = disk.told.contains(key::kVolumePath);
  const bool wasListed = wasMounted || disk.told.contains(key::kVolumeMountable);
  return !wasListed || (!pathChanged && (!wasMounted || disk.isProvisional));
}

void DiskAnnouncements::disappeared(const AnnouncedDisk& disk) {
  noteUnmounted(disk.told);
  events_.push_back({DiskEvent::Kind::disappeared, disk.told, {}});
}

std::vector<DiskEvent> DiskAnnouncements::take() {
  return std::exchange(events_, {});
}

const MountedDisk* DiskAnnouncements::diskAt(const std::string& point) const {
  const auto found = mounted_.find(point);
  return found == mounted_.end() ? nullptr : &found->second;
}

void DiskAnnouncements::noteMounted(const Dictionary& description, const MountEntry* mount) {
  if (mount != nullptr) mounted_.insert_or_assign(mount->point, MountedDisk{description, *mount});
}

/// Another disk may have taken the path over already.
void DiskAnnouncements::noteUnmounted(const Dictionary& description) {
  const URL* path = description.url(key::kVolumePath);
  const auto found = path == nullptr ? mounted_.end() : mounted_.find(path->path());
  if (found == mounted_.end()) return;
  const double time = description.doubleValue(key::kAppearanceTime);
  if (found->second.description.doubleValue(key::kAppearanceTime) == time) mounted_.erase(found);
}

}  // namespace kmv
