// SPDX-License-Identifier: MIT
#pragma once

#include <compare>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "platform/linux/mounts/MountDelta.h"
#include "platform/linux/mounts/MountPlaces.h"

namespace kmv {

/// One mounted file system: its device number and, where unrelated mounts may share that, its source.
struct SuperblockKey {
  DeviceNumber device;
  std::string source;
  friend auto operator<=>(const SuperblockKey&, const SuperblockKey&) = default;
};

SuperblockKey superblockOf(const MountEntry& entry);

/// What is a drive when it is mounted: one folder of one file system; all mounts of it show the same.
struct InstanceKey {
  SuperblockKey superblock;
  std::string root;
  friend auto operator<=>(const InstanceKey&, const InstanceKey&) = default;
};

/// The mount by which an instance is known from now on; none when it is not a volume, or no longer.
struct VolumeChange {
  InstanceKey instance;
  std::optional<MountEntry> mount;
};

/// The mounts of a name space and the decision which of them are volumes. Kept up to date by differences: the
/// cost of one depends on the mounts it touches - the same point, the points below, the mounts standing on
/// it, the instances of the same file system - and not on how many there are. Thread: one at a time.
class MountTree {
 public:
  /// Tells whether a mount's root is a folder, without waiting for a server. Asked only about reachable folder
  /// mounts on a block device, with no file system above that a server answers for, and once for each.
  /// `isLocal`: every file system on the way is known to have no server behind it; an overlay may have one.
  using IsDirectory = std::function<bool(const MountEntry&, bool isLocal)>;

  explicit MountTree(IsDirectory isDirectory);
  ~MountTree();
  MountTree(MountTree&&) noexcept;

  /// Applies a difference and returns the instances whose mount may have changed, in key order.
  std::vector<VolumeChange> apply(const MountDelta& delta);

  /// Ascends with each difference that may have changed a volume.
  std::uint64_t volumeGeneration() const { return volumeGeneration_; }

  /// Leaves the present mounts of a file system out of all decisions, except that they still hide what lies
  /// under them: its device is gone.
  void retire(const SuperblockKey& superblock);

  /// True when some mount of the file system was there before the last difference and still is, reachable or
  /// not: it was never unmounted in between.
  bool wasMountedThroughout(const SuperblockKey& superblock) const;

  /// By the id that files of /proc and statx show. Null for an unknown one. Valid until the next change.
  const MountEntry* mountWithReusedId(std::uint64_t reusedId) const;

  /// The mount by which the volume that a mount shows is known: itself, the canonical one of a bind or a
  /// folder. A mount that is no volume, or whose volume cannot be reached, stands for itself. By the id
  /// that files of /proc and statx show; null for an unknown one. Valid until the next change.
  const MountEntry* volumeOf(std::uint64_t reusedId) const;

  /// The reachable mount on whose point `path` lies, or the nearest one above it, judged by the text alone;
  /// null when there is none. Cost: one look-up for each folder of the path.
  const MountEntry* mountAbove(std::string_view path) const;

  /// Every mount in table order with the rule that hides it; an empty rule marks a volume.
  using Visit = std::function<void(const MountEntry&, std::string_view rule)>;
  void forEach(const Visit& visit) const;

 private:
  struct Instance;
  struct Node;
  struct ByOrder {
    bool operator()(const Node* a, const Node* b) const;
  };
  struct Dirty {
    std::set<std::uint64_t> mounts;  // ids whose reachability is to be decided again
    std::set<InstanceKey> instances;
  };

  void insert(const MountEntry& entry, Dirty& dirty, std::uint64_t attachedAt);
  void erase(std::uint64_t id, Dirty& dirty);
  void markNeighbours(const Node& node, Dirty& dirty) const;
  void decideReachability(Dirty& dirty);
  void decide(Node& node, Dirty& dirty);
  void setReachable(Node& node, bool reachable, Dirty& dirty);
  std::vector<VolumeChange> decideInstances(Dirty& dirty);
  std::set<InstanceKey> takeDirtyInstances(Dirty& dirty);
  void decideInstance(Instance& instance);
  bool isShadowed(const Node& node) const;
  const Instance* outerOf(const Instance& instance) const;
  bool rootIsDirectory(Instance& instance);
  bool standsOnlyOn(bool (*isRightKind)(std::string_view kind), const Node& node) const;
  std::string_view ruleOf(const Node& node) const;

  IsDirectory isDirectory_;
  std::uint64_t applied_ = 0;  // differences so far
  std::uint64_t volumeGeneration_ = 0;
  std::unordered_map<std::uint64_t, std::unique_ptr<Node>> mounts_;
  std::unordered_map<std::uint64_t, const Node*> byReusedId_;  // the newest that has it
  MountPlaces places_;
  std::map<std::string, std::set<Node*>, std::less<>> points_;  // by mount point
  std::map<InstanceKey, Instance> instances_;
};

}  // namespace kmv
