// SPDX-License-Identifier: MIT
#include "platform/simulated/MountedVolumes.h"

#include <algorithm>

#include "base/Text.h"

namespace kmv::simulated {
namespace {

template <typename Index, typename Key, typename Order>
void forget(Index& index, const Key& key, Order order) {
  const auto entry = index.find(key);
  entry->second.erase(order);
  if (entry->second.empty()) index.erase(entry);
}

}  // namespace

bool holds(const Place& place, const Place& item) {
  return item.first == place.first && isAtOrBelow(item.second, place.second);
}

void MountedVolumes::mount(simulation::DiskId volume, const URL& mountPoint, std::string kind,
                           const std::string& where) {
  ++version_;
  noteAffected(where);
  const Place on = placeOf(where);
  const Order order = next_++;
  mounts_.emplace(order, Mount{volume, mountPoint, std::move(kind), where, on});
  ofVolume_.emplace(volume, order);
  byWhere_[where].insert(order);
  byPath_[mountPoint.path()].insert(order);
  standing_[on].insert(order);
}

void MountedVolumes::unmount(simulation::DiskId volume) {
  const auto entry = ofVolume_.find(volume);
  if (entry == ofVolume_.end()) return;
  ++version_;
  const Order order = entry->second;
  const Mount ended = std::move(mounts_.extract(order).mapped());
  ofVolume_.erase(entry);
  forget(byWhere_, ended.where, order);
  forget(byPath_, ended.url.path(), order);
  forget(standing_, ended.on, order);
  rehomeWhatStoodOn(volume, ended.on);
  noteAffected(ended.where);
}

void MountedVolumes::rehomeWhatStoodOn(simulation::DiskId volume, const Place& on) {
  for (auto point = standing_.lower_bound(Place{volume, {}});
       point != standing_.end() && point->first.first == volume; point = standing_.erase(point)) {
    const Place home{on.first, on.second + point->first.second};
    for (const Order order : point->second) mounts_.at(order).on = home;
    standing_[home].merge(point->second);
  }
}

/// Whatever is mounted at a path or below it. A root hides nothing but another root.
void MountedVolumes::noteAffected(const std::string& where) {
  std::set<Order> affected;
  if (const auto same = byWhere_.find(where); same != byWhere_.end()) affected = same->second;
  if (!where.empty()) {
    const auto last = byWhere_.lower_bound(where + char('/' + 1));
    for (auto below = byWhere_.lower_bound(where + '/'); below != last; ++below)
      affected.insert(below->second.begin(), below->second.end());
  }
  for (const Order order : affected) affected_.push_back(mounts_.at(order).volume);
}

const MountedVolumes::Mount* MountedVolumes::find(simulation::DiskId volume) const {
  const auto order = ofVolume_.find(volume);
  return order == ofVolume_.end() ? nullptr : &mounts_.at(order->second);
}

const URL* MountedVolumes::mountPoint(simulation::DiskId volume) const {
  const Mount* const mount = find(volume);
  return mount == nullptr ? nullptr : &mount->url;
}

bool MountedVolumes::isReachable(simulation::DiskId volume) const {
  const auto order = ofVolume_.find(volume);
  return order != ofVolume_.end() && isReachable(order->second, mounts_.at(order->second));
}

bool MountedVolumes::isReachable(Order order, const Mount& mount) const {
  if (!mount.where.empty()) return placeOf(mount.where) == Place{mount.volume, {}};
  return order == *byWhere_.at({}).rbegin();
}

bool MountedVolumes::carriesMounts(simulation::DiskId volume) const {
  const auto point = standing_.lower_bound(Place{volume, {}});
  return point != standing_.end() && point->first.first == volume;
}

std::optional<simulation::DiskId> MountedVolumes::volumeMountedAt(const std::string& path) const {
  const auto there = byPath_.find(path);
  if (there == byPath_.end()) return std::nullopt;
  for (const Order order : there->second) {
    const Mount& mount = mounts_.at(order);
    if (isReachable(order, mount)) return mount.volume;
  }
  return std::nullopt;
}

void MountedVolumes::forEachReachable(
    const std::function<void(simulation::DiskId, const URL&)>& visit) const {
  for (const auto& [order, mount] : mounts_) {
    if (isReachable(order, mount)) visit(mount.volume, mount.url);
  }
}

std::vector<HiddenMount> MountedVolumes::hidden() const {
  std::vector<HiddenMount> hidden;
  for (const auto& [order, mount] : mounts_) {
    if (isReachable(order, mount)) continue;
    const bool isCovered = standing_.contains(Place{mount.volume, {}});
    hidden.push_back({mount.url.path(), mount.kind, isCovered ? "covered" : "shadowed"});
  }
  return hidden;
}

/// As the kernel finds it: of the mounts on what holds the path so far, the one that the path meets first; then the
/// mounts on that one.
Place MountedVolumes::placeOf(const std::string& resolvedPath) const {
  Place place{std::nullopt, resolvedPath};
  while (const Mount* const met = firstMetOnTheWayTo(place))
    place = {met->volume, place.second.substr(met->on.second.size())};
  return place;
}

const MountedVolumes::Mount* MountedVolumes::firstMetOnTheWayTo(const Place& place) const {
  const std::string& path = place.second;
  for (std::size_t end = 0;; end = std::min(path.find('/', end + 1), path.size())) {
    // At the machine's own root stand only the mounts that hold no item.
    const auto point =
        end == 0 && !place.first ? standing_.end() : standing_.find(Place{place.first, path.substr(0, end)});
    if (point != standing_.end()) return &mounts_.at(*point->second.begin());
    if (end >= path.size()) return nullptr;
  }
}

}  // namespace kmv::simulated
