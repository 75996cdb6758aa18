// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

/// How the mount table differs from the last time. A mount that moved is in both lists under the same id.
struct MountDelta {
  std::vector<MountEntry> detached;
  std::vector<MountEntry> attached;
  bool empty() const { return detached.empty() && attached.empty(); }
};

/// Differences one after another, oldest first, shared by all who are told of them.
using MountDeltas = std::vector<std::shared_ptr<const MountDelta>>;

/// The difference between two reads of the table, and the order of the newer one expressed in that of the
/// older: mounts that stayed keep their `order`, new ones get one that fits. On return `newer` holds the
/// whole new table. REQUIRES: `older` ascends by `order`; ids differ within each table.
/// Of two tables with the same beginning and end only what is between may be given, with the orders of the
/// neighbours that stay: 0 where there is none.
MountDelta diffMountTables(const std::vector<MountEntry>& older, std::vector<MountEntry>& newer,
                           std::uint64_t before = 0, std::uint64_t behind = 0);

/// Coalesces successive differences into one. What came and went in between is in neither list.
MountDelta joinMountDeltas(const MountDeltas& deltas);

/// The differences that a reader of the table has not taken yet. They have an upper bound: a reader that
/// stays away finds them coalesced once they are more than twice what is left of them, so adding is
/// amortised.
class MountBacklog {
 public:
  void add(std::shared_ptr<const MountDelta> delta);
  MountDeltas take();

 private:
  MountDeltas deltas_;
  std::size_t records_ = 0;
  std::size_t mostRecords_ = 0;
};

}  // namespace kmv
