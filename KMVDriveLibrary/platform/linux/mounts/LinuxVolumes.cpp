// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/LinuxVolumes.h"

#include <sys/statvfs.h>

#include <string>
#include <utility>

#include "base/Degradation.h"
#include "platform/linux/queues/WorkerPool.h"
#include "platform/posix/Retry.h"

namespace kmv {

LinuxVolumes::LinuxVolumes(const LinuxOptions& options, std::shared_ptr<MountTable> mounts)
    : mounts_(std::move(mounts)), lookup_(options, mounts_) {}

void LinuxVolumes::forEach(const MountTree::Visit& visit) {
  const bool isReadable = mounts_->readAnew([&](const MountTree& tree) { tree.forEach(visit); });
  setDegraded(kMountTableUnreadable, !isReadable);
}

std::vector<URL> LinuxVolumes::mountedVolumeURLs() {
  std::vector<URL> urls;
  forEach([&](const MountEntry& entry, std::string_view rule) {
    if (rule.empty()) urls.push_back(URL::fileURLWithPath(entry.point, /*isDirectory=*/true));
  });
  return urls;
}

std::vector<HiddenMount> LinuxVolumes::hiddenMounts() {
  std::vector<HiddenMount> hidden;
  forEach([&](const MountEntry& entry, std::string_view rule) {
    if (!rule.empty()) hidden.push_back({entry.point, entry.kind, std::string(rule)});
  });
  return hidden;
}

std::optional<Space> LinuxVolumes::spaceAt(const std::string& path) {
  const VolumeWait waiting;
  struct statvfs status {};
  if (retryOnEINTR([&] { return ::statvfs(path.c_str(), &status); }) != 0) return std::nullopt;
  return Space{status.f_blocks * status.f_frsize, status.f_bfree * status.f_frsize,
               status.f_bavail * status.f_frsize, (status.f_flag & ST_RDONLY) != 0};
}

std::optional<URL> LinuxVolumes::volumeURL(const URL& url) {
  if (!url.isFileURL()) return std::nullopt;
  const std::string path = url.path();
  if (path.empty() || path.front() != '/') return std::nullopt;
  const VolumeWait waiting;
  return lookup_.volumeHolding(path);
}

}  // namespace kmv
