// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountDelta.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <utility>

namespace kmv {
namespace {

/// The gap between the orders of two neighbours in the table, so that mounts can be inserted in between.
constexpr std::uint64_t kOrderStep = std::uint64_t{1} << 20;

/// Fewer records than this are never coalesced.
constexpr std::size_t kFewRecords = 256;

using OrdersById = std::unordered_map<std::uint64_t, std::uint64_t>;

/// For each new entry the order of the old one that it stays, or 0. An entry whose place among its neighbours
/// changed counts as new.
std::vector<std::uint64_t> keptOrders(const std::vector<MountEntry>& older,
                                      const std::vector<MountEntry>& newer) {
  std::unordered_map<std::uint64_t, const MountEntry*> known;
  known.reserve(older.size());
  for (const MountEntry& entry : older) known.emplace(entry.id, &entry);
  std::vector<std::uint64_t> orders(newer.size(), 0);
  std::uint64_t last = 0;
  for (std::size_t i = 0; i < newer.size(); ++i) {
    const auto found = known.find(newer[i].id);
    if (found == known.end() || !isSameMount(*found->second, newer[i]) || found->second->order <= last)
      continue;
    last = orders[i] = found->second->order;
  }
  return orders;
}

/// What of the older table does not stay. Both ascend by order, as what was kept did in the older one.
std::vector<MountEntry> detachedFrom(const std::vector<MountEntry>& older,
                                     const std::vector<std::uint64_t>& kept) {
  std::vector<MountEntry> detached;
  std::size_t next = 0;
  for (const MountEntry& entry : older) {
    while (next < kept.size() && kept[next] < entry.order) ++next;
    if (next == kept.size() || kept[next] != entry.order) detached.push_back(entry);
  }
  return detached;
}

/// An order between two neighbours that stay; a mount that moved keeps its own where it fits.
std::uint64_t orderBetween(std::uint64_t previous, std::uint64_t next, const MountEntry& entry,
                           const OrdersById& gone) {
  const auto moved = gone.find(entry.id);
  const bool fits = moved != gone.end() && moved->second > previous && moved->second < next;
  return fits ? moved->second : previous + (next - previous) / 2;
}

}  // namespace

MountDelta diffMountTables(const std::vector<MountEntry>& older, std::vector<MountEntry>& newer,
                           std::uint64_t before, std::uint64_t behind) {
  const std::vector<std::uint64_t> kept = keptOrders(older, newer);
  MountDelta delta;
  delta.detached = detachedFrom(older, kept);
  OrdersById gone;
  for (const MountEntry& entry : delta.detached) gone.emplace(entry.id, entry.order);
  std::uint64_t previous = before;
  std::uint64_t end = older.empty() ? before : older.back().order;
  std::size_t next = 0;  // the nearest entry from here on that stays
  for (std::size_t i = 0; i < newer.size(); ++i) {
    if (kept[i] != 0) {
      previous = newer[i].order = kept[i];
      continue;
    }
    next = std::max(next, i);
    while (next < newer.size() && kept[next] == 0) ++next;
    if (next == newer.size() && behind != 0) {
      previous = newer[i].order = orderBetween(previous, behind, newer[i], gone);
    } else if (next == newer.size()) {
      previous = newer[i].order = end =
          std::max(end, previous) + kOrderStep;  // a new mount, behind all that stay
    } else {
      previous = newer[i].order = orderBetween(previous, kept[next], newer[i], gone);
    }
    delta.attached.push_back(newer[i]);
  }
  return delta;
}

MountDelta joinMountDeltas(const MountDeltas& deltas) {
  std::map<std::uint64_t, const MountEntry*> detached, attached;
  for (const auto& delta : deltas) {
    for (const MountEntry& entry : delta->detached) {
      if (attached.erase(entry.id) == 0) detached.emplace(entry.id, &entry);
    }
    for (const MountEntry& entry : delta->attached) attached.insert_or_assign(entry.id, &entry);
  }
  MountDelta joined;
  for (const auto& [id, entry] : detached) joined.detached.push_back(*entry);
  for (const auto& [id, entry] : attached) joined.attached.push_back(*entry);
  return joined;
}

void MountBacklog::add(std::shared_ptr<const MountDelta> delta) {
  records_ += delta->detached.size() + delta->attached.size();
  deltas_.push_back(std::move(delta));
  if (deltas_.size() < 2 || records_ <= std::max(mostRecords_, kFewRecords)) return;
  auto joined = std::make_shared<const MountDelta>(joinMountDeltas(deltas_));
  records_ = joined->detached.size() + joined->attached.size();
  mostRecords_ = 2 * records_;
  deltas_ = {std::move(joined)};
}

MountDeltas MountBacklog::take() {
  records_ = mostRecords_ = 0;
  return std::exchange(deltas_, {});
}

}  // namespace kmv
