// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedFileSystem.h"

#include <algorithm>
#include <deque>
#include <string_view>
#include <utility>

#include "base/Fatal.h"
#include "platform/simulated/Descriptions.h"

namespace kmv::simulated {
namespace {

constexpr int kMaximumLinks = 40;  // as many as a kernel follows before it calls the path a loop

std::vector<std::string> componentsOf(std::string_view path) {
  std::vector<std::string> components;
  while (!path.empty()) {
    const std::size_t slash = std::min(path.find('/'), path.size());
    if (slash > 0) components.emplace_back(path.substr(0, slash));
    path.remove_prefix(std::min(slash + 1, path.size()));
  }
  return components;
}

/// True when `path` is `folder` or lies in it. Neither ends in "/"; the root is the empty text.
bool isWithin(std::string_view path, std::string_view folder) {
  return path.starts_with(folder) && (path.size() == folder.size() || path[folder.size()] == '/');
}

void requireAbsolute(const std::string& path) {
  if (!path.starts_with('/')) fatal("the simulated machine needs an absolute path, not \"" + path + "\"");
}

}  // namespace

SimulatedFileSystem::SimulatedFileSystem(const Scheduler& scheduler) : scheduler_(scheduler) {
  for (const std::string folder : {"/tmp", "/var", "/etc"}) {
    createItem("/private" + folder);
    createLink(folder, "private" + folder);
  }
}

std::vector<URL> SimulatedFileSystem::mountedVolumeURLs() {
  scheduler_.requireOwnThread();
  std::vector<URL> urls;
  if (listsToFail_ > 0) {
    --listsToFail_;
    return urls;
  }
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
  const auto file = contents_.find(placeOfNew(path));
  if (file == contents_.end())
    return {{}, itemExists(path) ? FileBytes::Failure::unreadable : FileBytes::Failure::missing};
  return file->second.size() > mostBytes ? FileBytes{} : FileBytes{file->second, {}};
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
  const auto file = resolved ? contents_.find(placeOf(*resolved)) : contents_.end();
  return file == contents_.end() ? nullptr : std::make_unique<Stream>(file->second);
}

ItemKind SimulatedFileSystem::itemKind(const std::string& path) {
  const auto resolved = realPath(path);
  if (!resolved) return ItemKind::none;
  const Place place = placeOf(*resolved == "/" ? std::string() : *resolved);
  const bool isRoot = *resolved == "/" || (place.first && place.second.empty());
  return isRoot || !contentsOfFolder(*resolved).empty() ? ItemKind::folder : ItemKind::file;
}

std::optional<std::uint64_t> SimulatedFileSystem::sizeOfItem(const std::string& path) {
  scheduler_.requireOwnThread();
  const Place place = placeOfNew(path);
  if (const auto reported = reportedSizes_.find(place); reported != reportedSizes_.end())
    return reported->second;
  if (const auto link = links_.find(place); link != links_.end()) return link->second.size();
  if (const auto file = contents_.find(place); file != contents_.end()) return file->second.size();
  return itemExists(path) ? std::optional<std::uint64_t>(0) : std::nullopt;
}

std::optional<Dictionary> SimulatedFileSystem::attributesOfItem(const std::string& path) {
  const auto size = sizeOfItem(path);
  if (!size) return std::nullopt;
  constexpr double kStart = 788'918'400;  // the wall clock when the machine was made
  const bool isFolder = itemKind(path) == ItemKind::folder;
  return Dictionary{{"NSFileSize", isFolder ? 0 : *size},
                    {"NSFileModificationDate", Date{kStart}},
                    {"NSFileType", isFolder ? "NSFileTypeDirectory" : "NSFileTypeRegular"}};
}

struct SimulatedFileSystem::Walk {
  const std::string& attribute;
  const VisitFile& visit;
  const Walk* outer;        // of the folder around
  std::string folder = {};  // resolved
};

void SimulatedFileSystem::visitFiles(const std::string& folder, const std::string& attribute,
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
        const bool asks = size == 0 && !here.attribute.empty() && attributeOf_;
        const auto value = asks ? attributeOf_(path, here.attribute) : std::nullopt;
        if (!here.visit({path, size, value ? std::optional<std::string_view>(*value) : std::nullopt}))
          return false;
        break;
      }
    }
  }
  return true;
}

bool SimulatedFileSystem::itemExists(const std::string& path) {
  return realPath(path).has_value();
}

std::optional<std::string> SimulatedFileSystem::realPath(const std::string& path) {
  scheduler_.requireOwnThread();
  if (!path.starts_with('/')) return std::nullopt;
  auto resolved = resolve(path, Missing::isNone);
  if (resolved && resolved->empty()) resolved->push_back('/');
  return resolved;
}

/// The path without links and dot components, and without the root's slash; none for a loop of links.
std::optional<std::string> SimulatedFileSystem::resolve(const std::string& path, Missing missing) const {
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
    const auto link = links_.find(placeOf(next));
    if (link == links_.end()) {
      if (missing == Missing::isNone && !isThere(next)) return std::nullopt;
      resolved = std::move(next);
      continue;
    }
    if (++followed > kMaximumLinks) return std::nullopt;
    if (link->second.starts_with('/')) resolved.clear();
    const auto target = componentsOf(link->second);
    rest.insert(rest.begin(), target.begin(), target.end());
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
    if (mount.where.empty() || !isWithin(resolvedPath, mount.where)) continue;
    // Of two mounts on one place, the later one covers the earlier.
    if (holder == nullptr || mount.where.size() >= holder->where.size()) holder = &mount;
  }
  if (holder == nullptr) return {std::nullopt, resolvedPath};
  return {holder->volume, resolvedPath.substr(holder->where.size())};
}

/// The place of an item whose own name is not followed when it is a link.
SimulatedFileSystem::Place SimulatedFileSystem::placeOfNew(const std::string& path) const {
  requireAbsolute(path);
  const auto components = componentsOf(path);
  if (components.empty()) fatal("the root always exists");
  const auto folder = resolve(path.substr(0, path.rfind(components.back())), Missing::isKept);
  if (!folder) fatal("\"" + path + "\" lies behind a loop of links");
  return placeOf(*folder + "/" + components.back());
}

bool SimulatedFileSystem::isThere(const std::string& resolvedPath) const {
  const Place place = placeOf(resolvedPath);
  if (place.first && place.second.empty()) return true;
  const auto holds = [&place](const Place& other) {
    return other.first == place.first && isWithin(other.second, place.second);
  };
  return std::any_of(items_.begin(), items_.end(), holds) ||
         std::any_of(links_.begin(), links_.end(), [&](const auto& link) { return holds(link.first); }) ||
         std::any_of(mounts_.begin(), mounts_.end(),
                     [&](const Mount& mount) { return isWithin(mount.where, resolvedPath); });
}

std::set<std::string> SimulatedFileSystem::contentsOfFolder(const std::string& resolvedPath) const {
  const std::string folder = resolvedPath == "/" ? std::string() : resolvedPath;
  const Place place = placeOf(folder);
  std::set<std::string> names;
  const auto addChild = [&names](std::string_view path, std::string_view above) {
    if (!isWithin(path, above) || path.size() == above.size()) return;
    const std::string_view rest = path.substr(above.size() + 1);
    names.emplace(rest.substr(0, rest.find('/')));
  };
  for (const Place& item : items_) {
    if (item.first == place.first) addChild(item.second, place.second);
  }
  for (const auto& [link, target] : links_) {
    if (link.first == place.first) addChild(link.second, place.second);
  }
  for (const Mount& mount : mounts_) addChild(mount.where, folder);
  return names;
}

void SimulatedFileSystem::setReportedSize(const std::string& path, std::uint64_t size) {
  reportedSizes_[placeOfNew(path)] = size;
}

void SimulatedFileSystem::createItem(const std::string& path) {
  items_.insert(placeOfNew(path));
}

void SimulatedFileSystem::writeFile(const std::string& path, std::string bytes) {
  createItem(path);
  contents_.insert_or_assign(placeOfNew(path), std::move(bytes));
}

void SimulatedFileSystem::removeItem(const std::string& path) {
  const Place place = placeOfNew(path);
  const auto within = [&place](const Place& other) {
    return other.first == place.first && isWithin(other.second, place.second);
  };
  std::erase_if(contents_, [&](const auto& file) { return within(file.first); });
  std::erase_if(reportedSizes_, [&](const auto& file) { return within(file.first); });
  const std::size_t removed = std::erase_if(items_, within) +
                              std::erase_if(links_, [&](const auto& link) { return within(link.first); });
  if (removed == 0) fatal("there is no item \"" + path + "\" to remove");
}

void SimulatedFileSystem::createLink(const std::string& path, const std::string& target) {
  links_.insert_or_assign(placeOfNew(path), target);
}

}  // namespace kmv::simulated
