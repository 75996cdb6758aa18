// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountPlaces.h"

#include "platform/linux/mounts/VolumeRules.h"

namespace kmv {

bool MountPlaces::hasMountAt(std::uint64_t parent, std::string_view point) const {
  return entries_.contains(Place(parent, point));
}

bool MountPlaces::hasMountBelow(std::uint64_t parent, std::string_view folder) const {
  const PathRange below = pathsBelow(folder);
  return entries_.lower_bound(Place(parent, below.from)) != entries_.lower_bound(Place(parent, below.to));
}

void MountPlaces::forEachChild(std::uint64_t parent, const Visit& visit) const {
  for (auto child = entries_.lower_bound(Place(parent, {})); child != entries_.end(); ++child) {
    if ((*child)->parent != parent) return;
    visit((*child)->id);
  }
}

void MountPlaces::forEachAt(std::uint64_t parent, std::string_view point, const Visit& visit) const {
  const auto [first, last] = entries_.equal_range(Place(parent, point));
  for (auto one = first; one != last; ++one) visit((*one)->id);
}

void MountPlaces::forEachBelow(std::uint64_t parent, std::string_view folder, const Visit& visit) const {
  const PathRange below = pathsBelow(folder);
  const auto end = entries_.lower_bound(Place(parent, below.to));
  for (auto one = entries_.lower_bound(Place(parent, below.from)); one != end; ++one) visit((*one)->id);
}

}  // namespace kmv
