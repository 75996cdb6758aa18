// SPDX-License-Identifier: MIT
#include "platform/simulated/MountedVolumes.h"

#include <algorithm>

#include "base/Text.h"

namespace kmv::simulated {

bool holds(const Place& place, const Place& item) {
  return item.first == place.first && isAtOrBelow(item.second, place.second);
}

void MountedVolumes::mount(simulation::DiskId volume, const URL& mountPoint, std::string kind,
                           const std::string& where) {
  noteAffected(where);
  mounts_.push_back({volume, mountPoint, std::move(kind), where, placeOf(where)});
}

void MountedVolumes::unmount(simulation::DiskId volume) {
  const Mount* const ended = find(volume);
  if (ended == nullptr) return;
  for (Mount& mount : mounts_) {
    if (mount.on.first == volume) mount.on = {ended->on.first, ended->on.second + mount.on.second};
  }
  const std::string where = ended->where;
  mounts_.erase(mounts_.begin() + (ended - mounts_.data()));
  noteAffected(where);
}

/// Whatever is mounted at a path or below it, so that a mount costs no look at every other's reachability.
void MountedVolumes::noteAffected(const std::string& where) {
  for (const Mount& mount : mounts_) {
    const bool isRoot = where.empty() && !mount.where.empty();  // which hides nothing but another root
    if (!isRoot && isAtOrBelow(mount.where, where)) affected_.push_back(mount.volume);
  }
}

const MountedVolumes::Mount* MountedVolumes::find(simulation::DiskId volume) const {
  const auto mount = std::find_if(mounts_.begin(), mounts_.end(),
                                  [volume](const Mount& one) { return one.volume == volume; });
  return mount == mounts_.end() ? nullptr : &*mount;
}

const URL* MountedVolumes::mountPoint(simulation::DiskId volume) const {
  const Mount* const mount = find(volume);
  return mount == nullptr ? nullptr : &mount->url;
}

bool MountedVolumes::isReachable(simulation::DiskId volume) const {
  const Mount* const mount = find(volume);
  if (mount == nullptr) return false;
  if (!mount->where.empty()) return placeOf(mount->where) == Place{volume, {}};
  return std::none_of(mounts_.begin() + (mount - mounts_.data()) + 1, mounts_.end(),
                      [](const Mount& later) { return later.where.empty(); });
}

bool MountedVolumes::carriesMounts(simulation::DiskId volume) const {
  return std::any_of(mounts_.begin(), mounts_.end(),
                     [volume](const Mount& mount) { return mount.on.first == volume; });
}

std::optional<simulation::DiskId> MountedVolumes::volumeMountedAt(const std::string& path) const {
  for (const Mount& mount : mounts_) {
    if (mount.url.path() == path && isReachable(mount.volume)) return mount.volume;
  }
  return std::nullopt;
}

void MountedVolumes::forEachReachable(
    const std::function<void(simulation::DiskId, const URL&)>& visit) const {
  for (const Mount& mount : mounts_) {
    if (isReachable(mount.volume)) visit(mount.volume, mount.url);
  }
}

std::vector<HiddenMount> MountedVolumes::hidden() const {
  std::vector<HiddenMount> hidden;
  for (const Mount& mount : mounts_) {
    if (isReachable(mount.volume)) continue;
    const bool isCovered = std::any_of(mounts_.begin(), mounts_.end(), [&mount](const Mount& other) {
      return other.on == Place{mount.volume, {}};
    });
    hidden.push_back({mount.url.path(), mount.kind, isCovered ? "covered" : "shadowed"});
  }
  return hidden;
}

/// As the kernel finds it: of the mounts on what holds the path so far, the one that the path meets first; then the
/// mounts on that one.
Place MountedVolumes::placeOf(const std::string& resolvedPath) const {
  Place place{std::nullopt, resolvedPath};
  while (true) {
    const Mount* met = nullptr;
    for (const Mount& mount : mounts_) {
      const bool isMet = !mount.where.empty() && holds(mount.on, place);
      if (isMet && (met == nullptr || mount.on.second.size() < met->on.second.size())) met = &mount;
    }
    if (met == nullptr) return place;
    place = {met->volume, place.second.substr(met->on.second.size())};
  }
}

}  // namespace kmv::simulated
