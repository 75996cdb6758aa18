// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/KnownMounts.h"

#include <algorithm>
#include <cerrno>

#include "platform/linux/mounts/VolumeRules.h"

namespace kmv {
namespace {

/// A table this small may be compared as a whole at any time.
constexpr std::size_t kFewMounts = 256;

/// Of a volume that is mounted in more places, the others are compared only when those cannot be reached. Containers
/// mount one volume thousands of times.
constexpr std::size_t kMostAlike = 16;

}  // namespace

void KnownMounts::compareAll(bool anew) {
  const KernelMounts::Ids present = kernel_.idsAbove(0);
  if (present.error != 0) return fail(present.error);
  std::vector<std::uint64_t> gone;
  for (const auto& [id, mount] : mounts_) {
    if (!std::binary_search(present.ids.begin(), present.ids.end(), id)) gone.push_back(id);
  }
  for (const std::uint64_t id : gone) remove(id);
  for (const std::uint64_t id : present.ids) {
    if (anew || !mounts_.contains(id)) compareOne(id);
  }
  if (!present.ids.empty()) lastId_ = present.ids.back();
  cameSinceAll_ = 0;
}

void KnownMounts::compareAfterReport() {
  const bool hasNewer = askForNewer();
  if (cameSinceAll_ > std::max(mounts_.size(), kFewMounts)) compareAll(/*anew=*/false);
  compareVolumes();
  if (hasNewer || !delta_.empty()) return;
  compareAll(/*anew=*/false);
  if (delta_.empty()) compareAll(/*anew=*/true);
  if (delta_.empty() && !failed_) ++missed_;
}

void KnownMounts::compareVolumes() {
  std::vector<std::vector<std::uint64_t>> volumes;
  for (const auto& [volume, mounts] : volumes_) {
    volumes.emplace_back();
    for (const auto& [order, id] : mounts) volumes.back().push_back(id);
  }
  for (const std::vector<std::uint64_t>& mounts : volumes) {
    bool isFound = false;
    for (std::size_t i = 0; i < mounts.size() && (!isFound || i < kMostAlike); ++i) {
      isFound = (compareWithWay(mounts[i]) && !isHidden(mounts[i])) || isFound;
    }
  }
}

/// A mount whose path changed may have gone along with one that it stands on.
bool KnownMounts::compareWithWay(std::uint64_t id) {
  auto mount = mounts_.find(id);
  if (mount == mounts_.end()) return false;
  const std::string point = mount->second.point;
  if (!compareOne(id)) return false;
  mount = mounts_.find(id);
  if (mount->second.point == point) return true;
  for (int depth = 0; depth < kDeepestNesting; ++depth) {
    const std::uint64_t parent = mount->second.parent;
    mount = mounts_.find(parent);
    if (mount == mounts_.end() || !compareOne(parent)) return true;
    mount = mounts_.find(parent);
  }
  return true;
}

bool KnownMounts::askForNewer() {
  const KernelMounts::Ids newer = kernel_.idsAbove(lastId_);
  if (newer.error != 0) {
    fail(newer.error);
    return false;
  }
  for (const std::uint64_t id : newer.ids) compare(id);
  cameSinceAll_ += newer.ids.size();
  if (newer.ids.empty()) return false;
  lastId_ = newer.ids.back();
  return true;
}

/// Whether a mount at its point, or at a folder above, still is in front of it.
bool KnownMounts::isHidden(std::uint64_t id) {
  std::vector<std::uint64_t> hiding;
  const auto collect = [&](std::uint64_t other) { hiding.push_back(other); };
  auto mount = mounts_.find(id);
  places_.forEachAt(id, mount->second.point, collect);
  for (int depth = 0; depth < kDeepestNesting && mount != mounts_.end(); ++depth) {
    const std::uint64_t parent = mount->second.parent;
    anyFolderAbove(mount->second.point, [&](std::string_view folder) {
      places_.forEachAt(parent, folder, collect);
      return false;
    });
    mount = mounts_.find(parent);
  }
  bool isHidden = false;
  for (const std::uint64_t other : hiding) isHidden = compareOne(other) || isHidden;
  return isHidden;
}

void KnownMounts::compare(std::uint64_t id) {
  const auto before = mounts_.find(id);
  const bool wasKnown = before != mounts_.end();
  const std::string point = wasKnown ? before->second.point : std::string();
  if (!compareOne(id)) return;
  const MountEntry& now = mounts_.at(id);
  if (wasKnown) {
    if (now.point != point) compareStandingOn(id, /*andAllAbove=*/true);
    return;
  }
  // One that was mounted beneath another took over that one's place.
  std::vector<std::uint64_t> atItsPlace;
  places_.forEachAt(now.parent, now.point, [&](std::uint64_t other) { atItsPlace.push_back(other); });
  for (const std::uint64_t other : atItsPlace) compareOne(other);
}

void KnownMounts::forget(std::uint64_t id) {
  if (!mounts_.contains(id)) return;
  remove(id);
  compareStandingOn(id, /*andAllAbove=*/false);
}

void KnownMounts::compareStandingOn(std::uint64_t id, bool andAllAbove) {
  std::vector<std::uint64_t> next;
  const auto collect = [&](std::uint64_t base) {
    places_.forEachChild(base, [&](std::uint64_t child) { next.push_back(child); });
  };
  collect(id);
  while (!next.empty()) {
    const std::uint64_t one = next.back();
    next.pop_back();
    if (compared_.contains(one)) continue;
    if (andAllAbove) collect(one);
    compareOne(one);
  }
}

/// False when there is no such mount any more.
bool KnownMounts::compareOne(std::uint64_t id) {
  const auto known = mounts_.find(id);
  if (refused_ || !compared_.insert(id).second) return known != mounts_.end();
  KernelMounts::Answer answer = kernel_.mount(id);
  if (answer.error == ENOENT && !kernel_.canBeAsked()) answer.error = EAGAIN;
  if (answer.error == ENOENT) {
    if (known == mounts_.end()) ++missed_;
    if (known != mounts_.end()) remove(id);
    return false;
  }
  if (answer.error != 0) {
    fail(answer.error);
    return known != mounts_.end();
  }
  if (known != mounts_.end() && isSameMount(known->second, answer.mount)) return true;
  if (known != mounts_.end()) remove(id);
  add(std::move(answer.mount));
  return true;
}

void KnownMounts::fail(int error) {
  failed_ = true;
  // A sandbox that came later; anything else may pass.
  refused_ = refused_ || error == EPERM || error == EACCES || error == ENOSYS;
}

void KnownMounts::add(MountEntry mount) {
  const auto [place, isNew] = mounts_.emplace(mount.id, std::move(mount));
  if (!isNew) return;
  const MountEntry& added = place->second;
  places_.insert(added);
  if (ownRule(added).empty()) volumes_[volumeOf(added)].emplace(added.order, added.id);
  delta_.attached.push_back(added);
}

void KnownMounts::remove(std::uint64_t id) {
  const auto found = mounts_.find(id);
  places_.erase(found->second);
  if (const auto volume = volumes_.find(volumeOf(found->second)); volume != volumes_.end()) {
    volume->second.erase(found->second.order);
    if (volume->second.empty()) volumes_.erase(volume);
  }
  delta_.detached.push_back(std::move(found->second));
  mounts_.erase(found);
}

MountDelta KnownMounts::takeDelta() {
  // Not clear(), which costs as many buckets as the largest difference ever had.
  if (!compared_.empty()) compared_ = {};
  return std::exchange(delta_, {});
}

std::vector<MountEntry> KnownMounts::all() const {
  std::vector<MountEntry> mounts;
  mounts.reserve(mounts_.size());
  for (const auto& [id, mount] : mounts_) mounts.push_back(mount);
  std::sort(mounts.begin(), mounts.end(),
            [](const MountEntry& a, const MountEntry& b) { return a.order < b.order; });
  return mounts;
}

}  // namespace kmv
