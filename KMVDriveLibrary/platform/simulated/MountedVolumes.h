// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/testing/SimulatedDisk.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kmv::simulated {

/// The volume that holds an item (none: the machine itself) and the path from there, "/" first; "" for the volume's
/// root.
using Place = std::pair<std::optional<simulation::DiskId>, std::string>;

/// True when `item` is at `place` or below it, on the same volume.
bool holds(const Place& place, const Place& item);

/// What lies below `place`, itself not among it, of an ordered table by places: the first and the one past the last.
template <typename Table>
auto rangeBelow(Table& table, const Place& place) {
  const Place first{place.first, place.second + '/'}, last{place.first, place.second + char('/' + 1)};
  return std::pair(table.lower_bound(first), table.lower_bound(last));
}

/// What is mounted where. As in a kernel, a mount stands on a place of what held it when it was mounted: on a mount point
/// it covers the older mount, on a folder above it shadows it. What is mounted at "/" holds no item: those there belong
/// to the machine itself.
class MountedVolumes {
 public:
  /// `where`: the mount point with links resolved; empty for the root. `kind` is what `hidden` says of it.
  void mount(simulation::DiskId volume, const URL& mountPoint, std::string kind, const std::string& where);
  /// What stood on the volume stands on the place below it from now on.
  void unmount(simulation::DiskId volume);

  /// The mount point, reachable or not; null when it is not mounted.
  const URL* mountPoint(simulation::DiskId volume) const;
  /// Whether paths lead to the volume: no other mount covers or shadows it.
  bool isReachable(simulation::DiskId volume) const;
  /// Whether other mounts stand on the volume, which keep it from being unmounted.
  bool carriesMounts(simulation::DiskId volume) const;
  /// The reachable volume that is mounted there, by the text of the path.
  std::optional<simulation::DiskId> volumeMountedAt(const std::string& path) const;
  /// The volumes whose reachability mounts and unmounts may have changed since the last call.
  std::vector<simulation::DiskId> takeAffected() { return std::exchange(affected_, {}); }
  /// Every reachable volume, in the order of the mounts.
  void forEachReachable(const std::function<void(simulation::DiskId, const URL&)>& visit) const;
  /// The others, with the rule that hides them.
  std::vector<HiddenMount> hidden() const;

  Place placeOf(const std::string& resolvedPath) const;
  /// Grows with each mount and unmount.
  std::uint64_t version() const { return version_; }
  /// What mounts stand on.
  const auto& points() const { return standing_; }

 private:
  using Order = std::uint64_t;  // of the mounts: a later one has a greater number
  struct Mount {
    simulation::DiskId volume;
    URL url;  // as it was mounted
    std::string kind;
    std::string where;
    Place on;
  };
  const Mount* find(simulation::DiskId volume) const;
  /// The mount on what is at `place` or above it that a path from its volume's root meets first; null without one.
  const Mount* firstMetOnTheWayTo(const Place& place) const;
  bool isReachable(Order order, const Mount& mount) const;
  void noteAffected(const std::string& where);
  void rehomeWhatStoodOn(simulation::DiskId volume, const Place& on);

  std::map<Order, Mount> mounts_;
  Order next_ = 0;
  std::uint64_t version_ = 0;
  // Indexes of `mounts_`: no question and no change looks at mounts that it is not about.
  std::unordered_map<simulation::DiskId, Order> ofVolume_;
  std::map<std::string, std::set<Order>> byWhere_;
  std::map<std::string, std::set<Order>> byPath_;  // of the URL
  std::map<Place, std::set<Order>> standing_;
  std::vector<simulation::DiskId> affected_;
};

}  // namespace kmv::simulated
