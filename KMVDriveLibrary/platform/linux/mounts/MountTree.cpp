// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountTree.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "platform/linux/mounts/VolumeRules.h"

namespace kmv {
namespace {

bool hasNoServer(std::string_view kind) {
  return !isFuseKind(kind) && !isNetworkKind(kind) && kind != "autofs";
}

/// Mount ids and anonymous device numbers are reused at once: that both are equal is not enough.
bool showsTheSame(const MountEntry& a, const MountEntry& b) {
  return a.device == b.device && a.root == b.root && a.kind == b.kind && a.source == b.source;
}

}  // namespace

struct MountTree::Node {
  MountEntry entry;
  std::string_view ownRule;
  Instance* instance = nullptr;  // null when the mount's own record hides it
  bool covered = false;
  bool shadowed = false;
  bool retired = false;
  std::uint64_t attachedAt = 0;  // the difference that brought it; a move does not count
};

bool MountTree::ByOrder::operator()(const Node* a, const Node* b) const {
  return std::tie(a->entry.order, a->entry.id) < std::tie(b->entry.order, b->entry.id);
}

struct MountTree::Instance {
  InstanceKey key;
  bool whole = false;
  std::set<Node*, ByOrder> members;
  std::set<Node*, ByOrder> reachable;
  std::optional<bool> isDirectory;
  bool present = false;       // was reachable when last decided
  std::string_view hiddenBy;  // folder or file; empty otherwise
  const Node* canonical = nullptr;
};

SuperblockKey superblockOf(const MountEntry& entry) {
  return {entry.device, isNetworkKind(entry.kind) ? entry.source : std::string()};
}

MountTree::MountTree(IsDirectory isDirectory) : isDirectory_(std::move(isDirectory)) {}

MountTree::~MountTree() = default;
MountTree::MountTree(MountTree&&) noexcept = default;

std::vector<VolumeChange> MountTree::apply(const MountDelta& delta) {
  Dirty dirty;
  ++applied_;
  std::map<std::uint64_t, std::pair<const MountEntry*, std::uint64_t>> detached;
  for (const MountEntry& entry : delta.detached) {
    const auto found = mounts_.find(entry.id);
    if (found == mounts_.end()) continue;
    detached.emplace(entry.id, std::pair(&entry, found->second->attachedAt));
    erase(entry.id, dirty);
  }
  for (const MountEntry& entry : delta.attached) {
    const auto before = detached.find(entry.id);
    const bool moved = before != detached.end() && showsTheSame(*before->second.first, entry);
    insert(entry, dirty, moved ? before->second.second : applied_);
  }
  decideReachability(dirty);
  std::vector<VolumeChange> changes = decideInstances(dirty);
  if (!changes.empty()) ++volumeGeneration_;
  return changes;
}

void MountTree::insert(const MountEntry& entry, Dirty& dirty, std::uint64_t attachedAt) {
  erase(entry.id, dirty);  // a hostile table may name an id twice
  auto owned = std::make_unique<Node>();
  Node& node = *owned;
  node.entry = entry;
  node.attachedAt = attachedAt;
  // The root of the name space is its own parent.
  if (node.entry.parent == node.entry.id) node.entry.parent = 0;
  node.ownRule = ownRule(entry);
  mounts_.emplace(entry.id, std::move(owned));
  byReusedId_.insert_or_assign(entry.reusedId, &node);
  places_.insert(node.entry);
  points_[node.entry.point].insert(&node);
  if (node.ownRule.empty()) {
    const InstanceKey key{superblockOf(entry), entry.root};
    Instance& instance = instances_[key];
    if (instance.members.empty()) {
      instance.key = key;
      instance.whole = showsWholeVolume(entry);
    }
    instance.members.insert(&node);
    node.instance = &instance;
    setReachable(node, true, dirty);
  }
  dirty.mounts.insert(entry.id);
  markNeighbours(node, dirty);
}

void MountTree::erase(std::uint64_t id, Dirty& dirty) {
  const auto found = mounts_.find(id);
  if (found == mounts_.end()) return;
  Node& node = *found->second;
  markNeighbours(node, dirty);
  places_.erase(node.entry);
  const auto point = points_.find(node.entry.point);
  point->second.erase(&node);
  if (point->second.empty()) points_.erase(point);
  if (node.instance != nullptr) {
    setReachable(node, false, dirty);
    if (node.instance->canonical == &node) node.instance->canonical = nullptr;
    node.instance->members.erase(&node);
    dirty.instances.insert(node.instance->key);
  }
  const auto byReusedId = byReusedId_.find(node.entry.reusedId);
  if (byReusedId != byReusedId_.end() && byReusedId->second == &node) byReusedId_.erase(byReusedId);
  mounts_.erase(found);
}

/// Whatever this mount hides or stops hiding: the mount it stands on, its siblings below its point, and what
/// stands on it.
void MountTree::markNeighbours(const Node& node, Dirty& dirty) const {
  const auto mark = [&](std::uint64_t id) { dirty.mounts.insert(id); };
  mark(node.entry.parent);
  places_.forEachBelow(node.entry.parent, node.entry.point, mark);
  places_.forEachChild(node.entry.id, mark);
}

void MountTree::decideReachability(Dirty& dirty) {
  while (!dirty.mounts.empty()) {
    const auto next = dirty.mounts.begin();
    const auto found = mounts_.find(*next);
    dirty.mounts.erase(next);
    if (found != mounts_.end()) decide(*found->second, dirty);
  }
}

void MountTree::decide(Node& node, Dirty& dirty) {
  const bool wasShadowed = node.shadowed;
  node.covered = places_.hasMountAt(node.entry.id, node.entry.point);
  node.shadowed = isShadowed(node);
  if (node.shadowed != wasShadowed) {
    places_.forEachChild(node.entry.id, [&](std::uint64_t id) { dirty.mounts.insert(id); });
  }
  if (node.instance != nullptr) setReachable(node, !node.covered && !node.shadowed && !node.retired, dirty);
}

bool MountTree::isShadowed(const Node& node) const {
  const bool belowSibling = anyFolderAbove(node.entry.point, [&](std::string_view folder) {
    return places_.hasMountAt(node.entry.parent, folder);
  });
  if (belowSibling) return true;
  const auto parent = mounts_.find(node.entry.parent);
  return parent != mounts_.end() && parent->second->shadowed;
}

void MountTree::setReachable(Node& node, bool reachable, Dirty& dirty) {
  const bool changed =
      reachable ? node.instance->reachable.insert(&node).second : node.instance->reachable.erase(&node) != 0;
  if (changed) dirty.instances.insert(node.instance->key);
}

std::vector<VolumeChange> MountTree::decideInstances(Dirty& dirty) {
  std::vector<VolumeChange> changes;
  for (const InstanceKey& key : takeDirtyInstances(dirty)) {
    const auto found = instances_.find(key);
    decideInstance(found->second);
    const Node* canonical = found->second.canonical;
    changes.push_back({key, canonical == nullptr ? std::nullopt : std::optional(canonical->entry)});
    if (found->second.members.empty()) instances_.erase(found);
  }
  return changes;
}

/// With the folders of an instance that came or went: they become part of it, or stand for themselves again.
std::set<InstanceKey> MountTree::takeDirtyInstances(Dirty& dirty) {
  std::set<InstanceKey> taken;
  while (!dirty.instances.empty()) {
    const InstanceKey key = *dirty.instances.begin();
    dirty.instances.erase(dirty.instances.begin());
    const auto found = instances_.find(key);
    if (found == instances_.end()) continue;
    Instance& instance = found->second;
    const bool present = !instance.reachable.empty();
    if (present != instance.present) {
      const PathRange below = pathsBelow(key.root);
      auto inside = instances_.lower_bound(InstanceKey{key.superblock, below.from});
      const auto end = instances_.lower_bound(InstanceKey{key.superblock, below.to});
      for (; inside != end; ++inside) dirty.instances.insert(inside->first);
      instance.present = present;
    }
    taken.insert(key);
  }
  return taken;
}

void MountTree::decideInstance(Instance& instance) {
  instance.canonical = nullptr;
  instance.hiddenBy = {};
  if (instance.reachable.empty()) return;
  if (!instance.whole && outerOf(instance) != nullptr) {
    instance.hiddenBy = rule::kFolder;
  } else if (!instance.whole && !rootIsDirectory(instance)) {
    instance.hiddenBy = rule::kFile;
  } else {
    instance.canonical = *instance.reachable.begin();
  }
}

/// The reachable instance of which this one is a folder; null when there is none.
const MountTree::Instance* MountTree::outerOf(const Instance& instance) const {
  const Instance* found = nullptr;
  anyFolderAbove(instance.key.root, [&](std::string_view folder) {
    const auto outer = instances_.find(InstanceKey{instance.key.superblock, std::string(folder)});
    if (outer != instances_.end() && !outer->second.reachable.empty()) found = &outer->second;
    return found != nullptr;
  });
  return found;
}

const MountEntry* MountTree::mountWithReusedId(std::uint64_t reusedId) const {
  const auto found = byReusedId_.find(reusedId);
  return found == byReusedId_.end() ? nullptr : &found->second->entry;
}

const MountEntry* MountTree::volumeOf(std::uint64_t reusedId) const {
  const auto found = byReusedId_.find(reusedId);
  if (found == byReusedId_.end()) return nullptr;
  const Instance* instance = found->second->instance;
  while (instance != nullptr && instance->canonical == nullptr) instance = outerOf(*instance);
  return instance == nullptr ? &found->second->entry : &instance->canonical->entry;
}

const MountEntry* MountTree::mountAbove(std::string_view path) const {
  const Node* deepest = nullptr;
  const auto isReachable = [](const Node& node) { return !node.covered && !node.shadowed; };
  const auto look = [&](std::string_view folder) {
    const auto found = points_.find(folder);
    if (found == points_.end()) return false;
    for (const Node* node : found->second) {
      if (isReachable(*node)) deepest = node;
    }
    return deepest != nullptr;
  };
  if (!look(path)) anyFolderAbove(path, look);
  return deepest == nullptr ? nullptr : &deepest->entry;
}

bool MountTree::rootIsDirectory(Instance& instance) {
  if (instance.isDirectory) return *instance.isDirectory;
  bool answer = true;
  for (const Node* node : instance.reachable) {
    // A mount on something below it needs a folder, and no question.
    if (places_.hasMountBelow(node->entry.id, node->entry.point)) return *(instance.isDirectory = true);
  }
  const Node& node = **instance.reachable.begin();
  if (isBlockBacked(node.entry) && standsOnlyOn(hasNoServer, node))
    answer = isDirectory_(node.entry, standsOnlyOn(isLocalKind, node));
  instance.isDirectory = answer;
  return answer;
}

/// True when the mount and all that its path leads through are of the right kind.
bool MountTree::standsOnlyOn(bool (*isRightKind)(std::string_view kind), const Node& node) const {
  const Node* step = &node;
  for (int depth = 0; depth < kDeepestNesting; ++depth) {
    if (!isRightKind(step->entry.kind)) return false;
    const auto parent = mounts_.find(step->entry.parent);
    if (parent == mounts_.end()) return step->entry.point == "/";
    step = parent->second.get();
  }
  return false;
}

void MountTree::retire(const SuperblockKey& superblock) {
  Dirty dirty;
  auto instance = instances_.lower_bound(InstanceKey{superblock, std::string()});
  for (; instance != instances_.end() && instance->first.superblock == superblock; ++instance) {
    for (Node* node : instance->second.members) {
      node->retired = true;
      setReachable(*node, false, dirty);
    }
  }
  decideInstances(dirty);  // nobody is told: who retires knows what ended
}

bool MountTree::wasMountedThroughout(const SuperblockKey& superblock) const {
  auto instance = instances_.lower_bound(InstanceKey{superblock, std::string()});
  for (; instance != instances_.end() && instance->first.superblock == superblock; ++instance) {
    for (const Node* node : instance->second.members) {
      if (!node->retired && node->attachedAt < applied_) return true;
    }
  }
  return false;
}

std::string_view MountTree::ruleOf(const Node& node) const {
  if (!node.ownRule.empty()) return node.ownRule;
  if (node.covered) return rule::kCovered;
  if (node.shadowed) return rule::kShadowed;
  if (!node.instance->hiddenBy.empty()) return node.instance->hiddenBy;
  return node.instance->canonical == &node ? std::string_view() : rule::kBind;
}

void MountTree::forEach(const std::function<void(const MountEntry&, std::string_view rule)>& visit) const {
  std::vector<const Node*> nodes;
  nodes.reserve(mounts_.size());
  for (const auto& [id, node] : mounts_) nodes.push_back(node.get());
  std::sort(nodes.begin(), nodes.end(), ByOrder{});
  for (const Node* node : nodes) visit(node->entry, ruleOf(*node));
}

}  // namespace kmv
