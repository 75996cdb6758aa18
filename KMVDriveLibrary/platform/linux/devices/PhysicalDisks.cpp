// SPDX-License-Identifier: MIT
#include "platform/linux/devices/PhysicalDisks.h"

#include <algorithm>
#include <set>
#include <utility>

#include "base/Text.h"
#include "platform/linux/mounts/MountInfo.h"
#include "platform/posix/SystemFiles.h"

namespace kmv {
namespace {

constexpr std::string_view kDeleted =
    " (deleted)";  // what the kernel adds to the name of a file that is gone

}  // namespace

PhysicalDisks::PhysicalDisks(const LinuxOptions& options, std::shared_ptr<MountTable> mounts)
    : options_(options), mounts_(std::move(mounts)), devices_(options) {}

std::string PhysicalDisks::folderOf(const std::string& name) const {
  if (name.empty() || name.find('/') != std::string::npos) return {};
  const std::string links = options_.sysRoot + "/class/block";
  const std::string link = readLink(links + "/" + name);
  return link.empty() ? std::string() : joinLink(links, link);
}

std::string PhysicalDisks::wholeFolderOf(const std::string& name) const {
  std::string folder = folderOf(name);
  if (folder.empty() || readAttribute(folder + "/partition").empty()) return folder;
  return std::string(parentFolder(folder));
}

StorageDevice PhysicalDisks::describe(const std::string& folder) const {
  StorageDevice disk{std::string(lastComponent(folder)), {}, 0};
  disk.bytes = static_cast<std::int64_t>(readNumber(folder + "/size") * kSectorBytes);
  if (const auto number = parseDeviceNumber(readAttribute(folder + "/dev"))) {
    if (const auto device = devices_.read(*number)) disk.model = device->model;
  }
  return disk;
}

std::optional<StorageDevice> PhysicalDisks::wholeDiskOf(const std::string& name) const {
  const std::string folder = wholeFolderOf(name);
  return folder.empty() ? std::nullopt : std::optional(describe(folder));
}

std::vector<StorageDevice> PhysicalDisks::below(const std::string& name) const {
  std::set<std::string> seen;
  std::vector<std::string> open = membersBeside(name);
  open.push_back(name);
  std::vector<StorageDevice> disks;
  while (!open.empty()) {
    const std::string folder = wholeFolderOf(open.back());
    open.pop_back();
    // A partition of a mapping stands on what its whole does; each is followed once, whatever leads to it.
    if (folder.empty() || !seen.insert(folder).second) continue;
    const std::vector<std::string> lower = standsOn(folder);
    if (lower.empty()) disks.push_back(describe(folder));
    open.insert(open.end(), lower.begin(), lower.end());
  }
  std::sort(disks.begin(), disks.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
  return disks;
}

std::optional<SpanningSystem> PhysicalDisks::systemOver(const std::string& name) const {
  const std::string systems = options_.sysRoot + "/fs/btrfs";
  for (const std::string& id : listFolder(systems)) {
    std::vector<std::string> devices = listFolder(systems + "/" + id + "/devices");
    if (std::find(devices.begin(), devices.end(), name) != devices.end())
      return SpanningSystem{id, std::move(devices)};
  }
  return std::nullopt;
}

std::vector<std::string> PhysicalDisks::membersBeside(const std::string& name) const {
  auto system = systemOver(name);
  return system ? std::move(system->devices) : std::vector<std::string>();
}

/// The devices right below a whole disk; none when it is a physical one.
std::vector<std::string> PhysicalDisks::standsOn(const std::string& folder) const {
  std::vector<std::string> lower = listFolder(folder + "/slaves");
  std::string file = readAttribute(folder + "/loop/backing_file");
  if (file.empty()) return lower;
  if (file.ends_with(kDeleted)) file.resize(file.size() - kDeleted.size());
  for (std::string& device : devicesHoldingFile(file)) lower.push_back(std::move(device));
  return lower;
}

/// By the text of the path: the file itself may be on a server that does not answer.
std::vector<std::string> PhysicalDisks::devicesHoldingFile(const std::string& path) const {
  std::optional<MountEntry> mount;
  mounts_->readThrottled([&](const MountTree& tree) {
    if (const MountEntry* above = tree.mountAbove(path)) mount = *above;
  });
  const auto device = mount ? devices_.readBehind(*mount) : std::nullopt;
  if (!device) return {};
  std::vector<std::string> members = membersBeside(device->name);
  if (members.empty()) members.push_back(device->name);
  return members;
}

}  // namespace kmv
