// SPDX-License-Identifier: MIT
#include "platform/simulated/ItemTree.h"

#include <algorithm>
#include <deque>
#include <string_view>
#include <utility>

#include "base/Fatal.h"
#include "base/Text.h"

namespace kmv::simulated {
namespace {

constexpr int kMaximumLinks = 40;  // a kernel's upper bound, too

std::vector<std::string> componentsOf(std::string_view path) {
  std::vector<std::string> components;
  while (!path.empty()) {
    const std::size_t slash = std::min(path.find('/'), path.size());
    if (slash > 0) components.emplace_back(path.substr(0, slash));
    path.remove_prefix(std::min(slash + 1, path.size()));
  }
  return components;
}

void requireAbsolute(const std::string& path) {
  if (!path.starts_with('/')) fatal("the simulated machine needs an absolute path, not \"" + path + "\"");
}

}  // namespace

ItemTree::ItemTree(const Scheduler& scheduler) : scheduler_(scheduler) {
  for (const std::string folder : {"/tmp", "/var", "/etc"}) {
    createItem("/private" + folder);
    createLink(folder, "private" + folder);
  }
}

std::optional<std::string> ItemTree::resolve(const std::string& path, Missing missing,
                                             std::vector<Place>* through) const {
  scheduler_.requireOwnThread();
  if (!path.starts_with('/')) return std::nullopt;
  std::string resolved;
  const auto first = componentsOf(path);
  std::deque<std::string> rest(first.begin(), first.end());
  for (int followed = 0; !rest.empty();) {
    const std::string component = std::move(rest.front());
    rest.pop_front();
    if (component == ".") continue;
    if (component == "..") {
      resolved.erase(std::min(resolved.rfind('/'), resolved.size()));
      continue;
    }
    std::string next = resolved + "/" + component;
    const Place place = mounts_.placeOf(next);
    if (through != nullptr) through->push_back(place);
    const std::string* const target = targetAt(place);
    if (target == nullptr) {
      if (missing == Missing::isNone && !isThere(next)) return std::nullopt;
      resolved = std::move(next);
      continue;
    }
    if (++followed > kMaximumLinks) return std::nullopt;
    if (target->starts_with('/')) resolved.clear();
    const auto components = componentsOf(*target);
    rest.insert(rest.begin(), components.begin(), components.end());
  }
  return resolved;
}

std::optional<std::string> ItemTree::realPath(const std::string& path) const {
  auto resolved = resolve(path, Missing::isNone);
  if (resolved && resolved->empty()) resolved->push_back('/');
  return resolved;
}

ItemKind ItemTree::kindOf(const std::string& path) const {
  const auto resolved = resolve(path, Missing::isNone);
  if (!resolved) return ItemKind::none;
  const Place place = mounts_.placeOf(*resolved);
  const auto item = items_.find(place);
  const bool isFolder = place.second.empty() || (item != items_.end() && item->second.isFolder);
  return isFolder || holdsAnything(place) ? ItemKind::folder : ItemKind::file;
}

std::optional<std::uint64_t> ItemTree::sizeOf(const std::string& path) const {
  scheduler_.requireOwnThread();
  const Item* const item = itemItself(path);
  if (item == nullptr) return exists(path) ? std::optional<std::uint64_t>(0) : std::nullopt;
  if (item->reportedSize) return item->reportedSize;
  return item->target ? item->target->size() : item->contents ? item->contents->size() : 0;
}

void ItemTree::mount(simulation::DiskId volume, const URL& mountPoint, std::string kind) {
  const std::string path = mountPoint.path();
  requireAbsolute(path);
  mounts_.mount(volume, mountPoint, std::move(kind), resolve(path, Missing::isKept).value_or(path));
}

void ItemTree::forget(simulation::DiskId volume) {
  std::erase_if(items_, [volume](const auto& item) { return item.first.first == volume; });
}

/// The place of an item; a link as the last component is not followed. None for a relative path and behind a
/// loop of links.
std::optional<Place> ItemTree::placeOfLinkItself(const std::string& path) const {
  const auto components = componentsOf(path);
  if (components.empty()) return mounts_.placeOf({});
  const auto folder = resolve(path.substr(0, path.rfind(components.back())), Missing::isKept);
  return folder ? std::optional(mounts_.placeOf(*folder + "/" + components.back())) : std::nullopt;
}

Place ItemTree::placeToChange(const std::string& path) const {
  requireAbsolute(path);
  if (componentsOf(path).empty()) fatal("the root always exists");
  const auto place = placeOfLinkItself(path);
  if (!place) fatal("\"" + path + "\" lies behind a loop of links");
  return *place;
}

/// The item that a verb made at `path`, a link not followed; null when there is none.
const ItemTree::Item* ItemTree::itemItself(const std::string& path) const {
  const auto place = placeOfLinkItself(path);
  const auto item = place ? items_.find(*place) : items_.end();
  return item == items_.end() ? nullptr : &item->second;
}

const std::string* ItemTree::contentsOfFile(const std::string& path) const {
  const Item* const item = itemItself(path);
  return item == nullptr || !item->contents ? nullptr : &*item->contents;
}

const std::string* ItemTree::targetAt(const Place& place) const {
  const auto item = items_.find(place);
  return item != items_.end() && item->second.target ? &*item->second.target : nullptr;
}

bool ItemTree::isThere(const std::string& resolvedPath) const {
  const Place place = mounts_.placeOf(resolvedPath);
  return place.second.empty() || items_.contains(place) || mounts_.points().contains(place) ||
         holdsAnything(place);
}

bool ItemTree::holdsAnything(const Place& folder) const {
  const auto [item, lastItem] = rangeBelow(items_, folder);
  const auto [point, lastPoint] = rangeBelow(mounts_.points(), folder);
  return item != lastItem || point != lastPoint;
}

std::set<std::string> ItemTree::list(const std::string& folder) const {
  const Place place = mounts_.placeOf(folder == "/" ? std::string() : folder);
  const auto item = items_.find(place);
  const bool isListable = item == items_.end() || item->second.isListable;
  return isListable ? contentsOf(place) : std::set<std::string>();
}

std::set<std::string> ItemTree::contentsOf(const Place& folder) const {
  std::set<std::string> names;
  const auto addNames = [&](const auto& range) {
    for (auto entry = range.first; entry != range.second; ++entry) {
      const std::string rest = entry->first.second.substr(folder.second.size() + 1);
      names.insert(rest.substr(0, rest.find('/')));
    }
  };
  addNames(rangeBelow(items_, folder));
  addNames(rangeBelow(mounts_.points(), folder));
  return names;
}

const ItemTree::Attributes* ItemTree::attributesOf(const std::string& path) const {
  static const Attributes none;
  const auto resolved = resolve(path, Missing::isNone);
  if (!resolved) return nullptr;
  const auto item = items_.find(mounts_.placeOf(*resolved));
  return item == items_.end() ? &none : &item->second.attributes;
}

std::optional<std::string> ItemTree::attribute(const std::string& path, const std::string& name) const {
  const Attributes* const attributes = attributesOf(path);
  if (attributes == nullptr) return std::nullopt;
  const auto value = attributes->find(name);
  return value == attributes->end() ? std::nullopt : std::optional(value->second);
}

bool ItemTree::setAttribute(const std::string& path, const std::string& name,
                            const std::optional<std::string>& value) {
  const auto resolved = resolve(path, Missing::isNone);
  if (!resolved || name.empty()) return false;
  Item& item = itemAt(mounts_.placeOf(*resolved));
  if (!value) return item.attributes.erase(name) > 0;
  item.attributes[name] = *value;
  return true;
}

/// A folder that had no item of its own becomes one.
ItemTree::Item& ItemTree::itemAt(const Place& place) {
  const auto [item, isNew] = items_.try_emplace(place);
  if (isNew) item->second.isFolder = true;
  return item->second;
}

/// As a system that truncates the file: its attributes stay.
void ItemTree::writeFile(const std::string& path, std::string bytes) {
  Item& item = items_[placeToChange(path)];
  item.contents = std::move(bytes);
  item.target.reset();
}

void ItemTree::setReportedSize(const std::string& path, std::uint64_t size) {
  const auto item = items_.find(placeToChange(path));
  if (item == items_.end()) fatal("there is no item \"" + path + "\" to report a size of");
  item->second.reportedSize = size;
}

void ItemTree::setListable(const std::string& path, bool listable) {
  if (kindOf(path) != ItemKind::folder) fatal("there is no folder \"" + path + "\"");
  itemAt(mounts_.placeOf(*resolve(path, Missing::isNone))).isListable = listable;
}

void ItemTree::createLink(const std::string& path, const std::string& target) {
  items_[placeToChange(path)] = {.target = target};
}

void ItemTree::removeItem(const std::string& path) {
  const Place place = placeToChange(path);
  if (std::erase_if(items_, [&place](const auto& entry) { return holds(place, entry.first); }) == 0)
    fatal("there is no item \"" + path + "\" to remove");
}

/// What was at the new place is replaced; attributes and content belong to the item and go with it.
void ItemTree::moveItem(const std::string& path, const std::string& newPath) {
  const Place from = placeToChange(path), to = placeToChange(newPath);
  if (from.first != to.first || holds(from, to))
    fatal("an item is moved on its own volume, and not into itself");
  decltype(items_) moved;
  for (auto item = items_.begin(); item != items_.end();) {
    const auto next = std::next(item);
    if (holds(from, item->first)) moved.insert(items_.extract(item));
    item = next;
  }
  if (moved.empty()) fatal("there is no item \"" + path + "\" to move");
  std::erase_if(items_, [&to](const auto& entry) { return holds(to, entry.first); });
  for (auto& [place, item] : moved)
    items_[{to.first, to.second + place.second.substr(from.second.size())}] = std::move(item);
}

}  // namespace kmv::simulated
