// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedFileSystem.h"

#include <algorithm>
#include <deque>
#include <string_view>
#include <utility>

#include "base/Fatal.h"
#include "base/Text.h"
#include "platform/simulated/SimulatedClock.h"

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

/// True when `item` is at `place` or below it, on the same volume.
template <typename Place>
bool holds(const Place& place, const Place& item) {
  return item.first == place.first && isAtOrBelow(item.second, place.second);
}

void requireAbsolute(const std::string& path) {
  if (!path.starts_with('/')) fatal("the simulated machine needs an absolute path, not \"" + path + "\"");
}

}  // namespace

SimulatedFileSystem::SimulatedFileSystem(const Scheduler& scheduler, testing::ArmedFaults& faults)
    : scheduler_(scheduler), faults_(faults) {
  for (const std::string folder : {"/tmp", "/var", "/etc"}) {
    createItem("/private" + folder);
    createLink(folder, "private" + folder);
  }
}

std::vector<URL> SimulatedFileSystem::mountedVolumeURLs() {
  scheduler_.requireOwnThread();
  std::vector<URL> urls;
  if (testing::ArmedFaults::strikes(faults_.mountedVolumeLists)) return urls;
  for (const Mount& mount : mounts_) urls.push_back(mount.url);
  return urls;
}

std::vector<HiddenMount> SimulatedFileSystem::hiddenMounts() {
  scheduler_.requireOwnThread();
  return hiddenMounts_;
}

std::optional<URL> SimulatedFileSystem::volumeURL(const URL& url) {
  const auto resolved = url.isFileURL() ? realPath(url.path()) : std::nullopt;
  if (!resolved) return std::nullopt;
  const auto holder = placeOf(*resolved == "/" ? std::string() : *resolved).first;
  for (const Mount& mount : mounts_) {
    if (holder ? mount.volume == *holder : mount.where.empty()) return mount.url;
  }
  return URL::fileURLWithPath("/", /*isDirectory=*/true);  // the machine itself, which is no drive
}

FileBytes SimulatedFileSystem::readRegularFile(const std::string& path, std::size_t mostBytes) {
  scheduler_.requireOwnThread();
  const Item* const item = itemItself(path);
  if (item == nullptr || !item->contents)
    return {{}, itemExists(path) ? FileBytes::Failure::unreadable : FileBytes::Failure::missing};
  return item->contents->size() > mostBytes ? FileBytes{} : FileBytes{item->contents, {}};
}

std::unique_ptr<FileStream> SimulatedFileSystem::openForReading(const std::string& path) {
  class Stream final : public FileStream {
   public:
    explicit Stream(std::string bytes) : bytes_(std::move(bytes)) {}
    std::optional<std::string> read(std::size_t mostBytes) override {
      std::string part = bytes_.substr(at_, mostBytes);
      at_ += part.size();
      return part;
    }

   private:
    std::string bytes_;
    std::size_t at_ = 0;
  };
  const auto resolved = realPath(path);
  const Item* const item = resolved ? itemItself(*resolved) : nullptr;
  return item == nullptr || !item->contents ? nullptr : std::make_unique<Stream>(*item->contents);
}

ItemKind SimulatedFileSystem::itemKind(const std::string& path) {
  const auto resolved = realPath(path);
  if (!resolved) return ItemKind::none;
  const Place place = placeOf(*resolved == "/" ? std::string() : *resolved);
  const bool isRoot = *resolved == "/" || (place.first && place.second.empty());
  return isRoot || !contentsOfFolder(*resolved).empty() ? ItemKind::folder : ItemKind::file;
}

std::optional<std::uint64_t> SimulatedFileSystem::sizeOfItem(const std::string& path) const {
  scheduler_.requireOwnThread();
  const Item* const item = itemItself(path);
  if (item == nullptr) return itemExists(path) ? std::optional<std::uint64_t>(0) : std::nullopt;
  if (item->reportedSize) return item->reportedSize;
  return item->target ? item->target->size() : item->contents ? item->contents->size() : 0;
}

std::optional<Dictionary> SimulatedFileSystem::attributesOfItem(const std::string& path) {
  const auto size = sizeOfItem(path);
  if (!size) return std::nullopt;
  const bool isFolder = itemKind(path) == ItemKind::folder;
  return Dictionary{{"NSFileSize", isFolder ? 0 : *size},
                    {"NSFileModificationDate", Date{SimulatedClock::kStart}},
                    {"NSFileType", isFolder ? "NSFileTypeDirectory" : "NSFileTypeRegular"}};
}

struct SimulatedFileSystem::Walk {
  const std::string& attribute;
  const VisitFile& visit;
  const Walk* outer;        // of the folder around
  std::string folder = {};  // resolved
};

void SimulatedFileSystem::visitEachFile(const std::string& folder, const std::string& attribute,
                                        const VisitFile& visit) {
  if (const auto resolved = realPath(folder)) walk({attribute, visit, nullptr}, folder, *resolved);
}

bool SimulatedFileSystem::walk(const Walk& around, const std::string& shownPath,
                               const std::string& resolvedPath) {
  for (const Walk* outer = &around; outer != nullptr; outer = outer->outer) {
    if (outer->folder == resolvedPath) return true;
  }
  const Walk here{around.attribute, around.visit, &around, resolvedPath};
  for (const std::string& name : contentsOfFolder(resolvedPath)) {
    if (name.starts_with("._")) continue;
    const std::string path = shownPath + "/" + name;
    switch (itemKind(path)) {
      case ItemKind::none:
        break;
      case ItemKind::folder:
        if (!walk(here, path, *realPath(path))) return false;
        break;
      case ItemKind::file: {
        const std::uint64_t size = sizeOfItem(path).value_or(0);
        const bool asks = size == 0 && !here.attribute.empty();
        const auto value = asks ? attribute(path, here.attribute) : std::nullopt;
        if (!here.visit({path, size, value ? std::optional<std::string_view>(*value) : std::nullopt}))
          return false;
        break;
      }
    }
  }
  return true;
}

std::optional<std::string> SimulatedFileSystem::realPath(const std::string& path) {
  auto resolved = resolve(path, Missing::isNone);
  if (resolved && resolved->empty()) resolved->push_back('/');
  return resolved;
}

/// The canonical path: without links and dot components, the root as the empty text; none for a relative path
/// and for a loop of links.
std::optional<std::string> SimulatedFileSystem::resolve(const std::string& path, Missing missing) const {
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
    const std::string* const target = targetAt(placeOf(next));
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

const std::vector<std::string>& SimulatedFileSystem::pathAliasPrefixes() {
  static const std::vector<std::string> prefixes{"/private/var/automount", "/var/automount", "/private"};
  return prefixes;
}

void SimulatedFileSystem::mount(testing::DiskId volume, const URL& mountPoint) {
  const std::string path = mountPoint.path();
  requireAbsolute(path);
  mounts_.push_back({volume, mountPoint, path, resolve(path, Missing::isKept).value_or(path)});
}

void SimulatedFileSystem::unmount(testing::DiskId volume) {
  std::erase_if(mounts_, [volume](const Mount& mount) { return mount.volume == volume; });
}

const std::string* SimulatedFileSystem::mountPoint(testing::DiskId volume) const {
  for (const Mount& mount : mounts_) {
    if (mount.volume == volume) return &mount.path;
  }
  return nullptr;
}

SimulatedFileSystem::Place SimulatedFileSystem::placeOf(const std::string& resolvedPath) const {
  const Mount* holder = nullptr;
  for (const Mount& mount : mounts_) {
    if (mount.where.empty() || !isAtOrBelow(resolvedPath, mount.where)) continue;
    // Of two mounts on one place, the later one covers the earlier.
    if (holder == nullptr || mount.where.size() >= holder->where.size()) holder = &mount;
  }
  if (holder == nullptr) return {std::nullopt, resolvedPath};
  return {holder->volume, resolvedPath.substr(holder->where.size())};
}

/// The place of an item; a link as the last component is not followed. None for a relative path and behind a
/// loop of links.
std::optional<SimulatedFileSystem::Place> SimulatedFileSystem::placeOfLinkItself(
    const std::string& path) const {
  const auto components = componentsOf(path);
  if (components.empty()) return placeOf({});
  const auto folder = resolve(path.substr(0, path.rfind(components.back())), Missing::isKept);
  return folder ? std::optional(placeOf(*folder + "/" + components.back())) : std::nullopt;
}

SimulatedFileSystem::Place SimulatedFileSystem::placeToChange(const std::string& path) const {
  requireAbsolute(path);
  if (componentsOf(path).empty()) fatal("the root always exists");
  const auto place = placeOfLinkItself(path);
  if (!place) fatal("\"" + path + "\" lies behind a loop of links");
  return *place;
}

/// The item that a verb made at `path`, a link not followed; null when there is none.
const SimulatedFileSystem::Item* SimulatedFileSystem::itemItself(const std::string& path) const {
  const auto place = placeOfLinkItself(path);
  const auto item = place ? items_.find(*place) : items_.end();
  return item == items_.end() ? nullptr : &item->second;
}

const std::string* SimulatedFileSystem::targetAt(const Place& place) const {
  const auto item = items_.find(place);
  return item != items_.end() && item->second.target ? &*item->second.target : nullptr;
}

bool SimulatedFileSystem::isThere(const std::string& resolvedPath) const {
  const Place place = placeOf(resolvedPath);
  if (place.first && place.second.empty()) return true;
  return std::any_of(items_.begin(), items_.end(),
                     [&](const auto& item) { return holds(place, item.first); }) ||
         std::any_of(mounts_.begin(), mounts_.end(),
                     [&](const Mount& mount) { return isAtOrBelow(mount.where, resolvedPath); });
}

std::set<std::string> SimulatedFileSystem::contentsOfFolder(const std::string& resolvedPath) const {
  const std::string folder = resolvedPath == "/" ? std::string() : resolvedPath;
  const Place place = placeOf(folder);
  std::set<std::string> names;
  const auto addChild = [&names](std::string_view path, std::string_view above) {
    if (!isAtOrBelow(path, above) || path.size() == above.size()) return;
    const std::string_view rest = path.substr(above.size() + 1);
    names.emplace(rest.substr(0, rest.find('/')));
  };
  for (const auto& [itemPlace, item] : items_) {
    if (itemPlace.first == place.first) addChild(itemPlace.second, place.second);
  }
  for (const Mount& mount : mounts_) addChild(mount.where, folder);
  return names;
}

std::map<std::string, std::string>* SimulatedFileSystem::attributesOf(const std::string& path) {
  const auto resolved = resolve(path, Missing::isNone);
  return resolved ? &attributes_[placeOf(*resolved)] : nullptr;
}

std::optional<std::string> SimulatedFileSystem::attribute(const std::string& path,
                                                          const std::string& name) const {
  const auto resolved = resolve(path, Missing::isNone);
  const auto ofItem = resolved ? attributes_.find(placeOf(*resolved)) : attributes_.end();
  if (ofItem == attributes_.end()) return std::nullopt;
  const auto value = ofItem->second.find(name);
  return value == ofItem->second.end() ? std::nullopt : std::optional(value->second);
}

void SimulatedFileSystem::createItem(const std::string& path) {
  items_[placeToChange(path)];
}

void SimulatedFileSystem::writeFile(const std::string& path, std::string bytes) {
  items_[placeToChange(path)].contents = std::move(bytes);
}

void SimulatedFileSystem::setReportedSize(const std::string& path, std::uint64_t size) {
  const auto item = items_.find(placeToChange(path));
  if (item == items_.end()) fatal("there is no item \"" + path + "\" to report a size of");
  item->second.reportedSize = size;
}

void SimulatedFileSystem::createLink(const std::string& path, const std::string& target) {
  items_[placeToChange(path)].target = target;
}

void SimulatedFileSystem::removeItem(const std::string& path) {
  const Place place = placeToChange(path);
  const auto isBelow = [&place](const auto& entry) { return holds(place, entry.first); };
  std::erase_if(attributes_, isBelow);
  if (std::erase_if(items_, isBelow) == 0) fatal("there is no item \"" + path + "\" to remove");
}

}  // namespace kmv::simulated
