// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <set>
#include <string_view>
#include <utility>

#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

/// Which mounts stand where: by the mount that they stand on, and by their point. Every question costs a
/// look-up in a sorted set. The entries are the caller's and outlive their place here.
class MountPlaces {
 public:
  using Visit = std::function<void(std::uint64_t id)>;

  void insert(const MountEntry& entry) { entries_.insert(&entry); }
  void erase(const MountEntry& entry) { entries_.erase(&entry); }

  bool hasMountAt(std::uint64_t parent, std::string_view point) const;
  bool hasMountBelow(std::uint64_t parent, std::string_view folder) const;

  /// Each mount that stands on `parent`.
  void forEachChild(std::uint64_t parent, const Visit& visit) const;
  /// Each mount that stands on `parent` exactly at `point`.
  void forEachAt(std::uint64_t parent, std::string_view point, const Visit& visit) const;
  /// Each mount that stands on `parent` strictly below `folder`.
  void forEachBelow(std::uint64_t parent, std::string_view folder, const Visit& visit) const;

 private:
  using Place = std::pair<std::uint64_t, std::string_view>;
  static Place placeOf(const MountEntry* entry) { return {entry->parent, entry->point}; }
  struct Order {
    using is_transparent = void;
    bool operator()(const MountEntry* a, const MountEntry* b) const {
      return std::pair(placeOf(a), a->id) < std::pair(placeOf(b), b->id);
    }
    bool operator()(const MountEntry* a, const Place& b) const { return placeOf(a) < b; }
    bool operator()(const Place& a, const MountEntry* b) const { return a < placeOf(b); }
  };

  std::set<const MountEntry*, Order> entries_;
};

}  // namespace kmv
