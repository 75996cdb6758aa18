// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/Files.h"
#include "platform/simulated/MountedVolumes.h"
#include "platform/simulated/Scheduler.h"

namespace kmv::simulated {

/// Which items exist on the machine and its volumes. An item belongs to the volume that held its place when it was made,
/// goes and comes back with it, and owns its attributes, as an inode does: wherever it is moved or its volume mounted.
class ItemTree {
 public:
  explicit ItemTree(const Scheduler& scheduler);

  void mount(simulation::DiskId volume, const URL& mountPoint, std::string kind);
  void unmount(simulation::DiskId volume) { mounts_.unmount(volume); }
  /// Drops the items of a volume that never comes back. REQUIRES: it is not mounted.
  void forget(simulation::DiskId volume);
  const MountedVolumes& mounts() const { return mounts_; }
  std::vector<simulation::DiskId> takeAffectedVolumes() { return mounts_.takeAffected(); }

  // The verbs. A path that makes no sense aborts the process.
  void createItem(const std::string& path) { items_[placeToChange(path)]; }
  void writeFile(const std::string& path, std::string bytes);
  void setReportedSize(const std::string& path, std::uint64_t size);
  void setListable(const std::string& path, bool listable);
  void createLink(const std::string& path, const std::string& target);
  void removeItem(const std::string& path);
  void moveItem(const std::string& path, const std::string& newPath);

  using Attributes = std::map<std::string, std::string>;
  /// The attributes of the item at `path`, links followed; null without the item.
  const Attributes* attributesOf(const std::string& path) const;
  std::optional<std::string> attribute(const std::string& path, const std::string& name) const;
  /// No value removes it. False without the item, or without what is to be removed.
  bool setAttribute(const std::string& path, const std::string& name,
                    const std::optional<std::string>& value);

  enum class Missing { isNone, isKept };
  /// The canonical path: without links and dot components, the root as the empty text; none for a relative path
  /// and for a loop of links. `through` gets the places on the way.
  std::optional<std::string> resolve(const std::string& path, Missing missing,
                                     std::vector<Place>* through = nullptr) const;
  /// The same, with the root as "/"; none when nothing is there.
  std::optional<std::string> realPath(const std::string& path) const;
  bool exists(const std::string& path) const { return resolve(path, Missing::isNone).has_value(); }
  ItemKind kindOf(const std::string& path) const;
  /// In bytes; of the item itself when it is a link.
  std::optional<std::uint64_t> sizeOf(const std::string& path) const;
  /// What the regular file at `path` holds, a link not followed; null when it cannot be read.
  const std::string* contentsOfFile(const std::string& path) const;
  /// Names, in ascending order; none of a folder that cannot be listed. `folder`: a real path.
  std::set<std::string> list(const std::string& folder) const;

 private:
  /// What a verb made. Folders on the way to it exist without an item of their own.
  struct Item {
    std::optional<std::string> contents = {};  // of a regular file that can be read
    std::optional<std::string> target = {};    // of a link
    std::optional<std::uint64_t> reportedSize = {};
    bool isFolder = false;  // whatever is in it
    bool isListable = true;
    Attributes attributes = {};
  };

  std::optional<Place> placeOfLinkItself(const std::string& path) const;
  Place placeToChange(const std::string& path) const;
  Item& itemAt(const Place& place);
  const Item* itemItself(const std::string& path) const;
  const std::string* targetAt(const Place& place) const;
  bool isThere(const std::string& resolvedPath) const;
  bool holdsAnything(const Place& folder) const;
  std::set<std::string> contentsOf(const Place& folder) const;

  const Scheduler& scheduler_;
  MountedVolumes mounts_;
  std::map<Place, Item> items_;
};

}  // namespace kmv::simulated
