// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/LinuxVolumes.h"

#include "platform/linux/mounts/PointType.h"
#include "platform/posix/SystemFiles.h"

namespace kmv {

LinuxVolumes::LinuxVolumes(const LinuxOptions& options)
    : mountTable_(options.procRoot + "/self/mountinfo"), viewRoot_(options.viewRoot), lookup_(options) {}

MountTree LinuxVolumes::readMountTree() const {
  MountTree tree([this](const MountEntry& mount) { return pointIsDirectory(viewRoot_, mount); });
  MountDelta everything;
  everything.attached = parseMountInfo(readFile(mountTable_).value_or(std::string()));
  tree.apply(everything);
  return tree;
}

std::vector<URL> LinuxVolumes::mountedVolumeURLs() {
  std::vector<URL> urls;
  readMountTree().forEach([&](const MountEntry& entry, std::string_view rule) {
    if (rule.empty()) urls.push_back(URL::fileURLWithPath(entry.point, /*isDirectory=*/true));
  });
  return urls;
}

std::vector<HiddenMount> LinuxVolumes::hiddenMounts() {
  std::vector<HiddenMount> mounts;
  readMountTree().forEach([&](const MountEntry& entry, std::string_view rule) {
    if (!rule.empty()) mounts.push_back({entry.point, entry.kind, std::string(rule)});
  });
  return mounts;
}

std::optional<URL> LinuxVolumes::volumeURL(const URL& url) {
  if (!url.isFileURL()) return std::nullopt;
  const std::string path = url.path();
  if (path.empty() || path.front() != '/') return std::nullopt;
  return lookup_.volumeHolding(path);
}

}  // namespace kmv
