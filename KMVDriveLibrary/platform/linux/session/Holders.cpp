// SPDX-License-Identifier: MIT
#include "platform/linux/session/Holders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "base/Text.h"
#include "platform/linux/mounts/VolumeRules.h"
#include "platform/linux/session/ProcessFiles.h"
#include "platform/posix/SystemFiles.h"

namespace kmv {
namespace {

/// What the kernel knows of a file without asking its file system.
std::optional<struct statx> lookAt(const std::string& path) {
  struct statx status {};
  const int flags = AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
  if (::statx(AT_FDCWD, path.c_str(), flags, /*mask=*/0, &status) != 0) return std::nullopt;
  return status;
}

std::vector<pid_t> listProcesses(const std::string& procRoot) {
  std::vector<pid_t> ids;
  for (const std::string& name : listFolder(procRoot)) {
    if (const auto id = parseNumber(name)) ids.push_back(static_cast<pid_t>(*id));
  }
  std::sort(ids.begin(), ids.end());
  return ids;
}

/// A thread that waits for a dead server may hold its process's address space, and whoever asks for the list
/// of mappings would wait with it.
bool isStuck(const std::string& folder) {
  const std::string tasks = folder + "/task";
  const std::vector<std::string> names = listFolder(tasks);
  return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
    return isUninterruptible(readAttribute(tasks + "/" + name + "/stat"));
  });
}

class Scan {
 public:
  Scan(const LinuxOptions& options, const TargetVolume& volume)
      : proc_(options.procRoot),
        mountId_(volume.mountId),
        point_(options.view() + volume.mountPoint),
        pointInMaps_(pathInMaps(point_)),
        network_(isNetworkKind(volume.kind)),
        namespace_(readLink(proc_ + "/self/ns/mnt")),
        devices_{volume.device} {
    // Kernels differ in which of its two numbers the list of mappings has for a file on btrfs.
    if (volume.kind != "btrfs") return;
    if (const auto root = lookAt(point_)) devices_.push_back({root->stx_dev_major, root->stx_dev_minor});
  }

  bool usesOpenly(pid_t id) const {
    const std::string folder = folderOf(id);
    for (const char* link : {"/cwd", "/root", "/exe"}) {
      if (leadsHere(folder, folder + link)) return true;
    }
    const std::vector<std::string> names = listFolder(folder + "/fdinfo");
    return std::any_of(names.begin(), names.end(), [&](const std::string& name) {
      return mountIdOfDescriptor(readAttribute(folder + "/fdinfo/" + name)) == mountId_;
    });
  }

  bool maps(pid_t id) const {
    const std::string folder = folderOf(id);
    if (isStuck(folder)) return false;
    const auto text = readFile(folder + "/maps");
    std::string_view rest = text ? std::string_view(*text) : std::string_view();
    while (!rest.empty()) {
      if (isMappedHere(takeLine(rest))) return true;
    }
    return false;
  }

 private:
  std::string folderOf(pid_t id) const { return proc_ + "/" + std::to_string(id); }

  /// The text decides first: what it names elsewhere may be a server's that does not answer. The same text
  /// may mean another mount to a process with mounts of its own.
  bool leadsHere(const std::string& folder, const std::string& link) const {
    if (!isAtOrBelow(readLink(link), point_)) return false;
    if (!network_) {
      const auto status = lookAt(link);
      if (status && (status->stx_mask & STATX_MNT_ID) != 0) return status->stx_mnt_id == mountId_;
    }
    return readLink(folder + "/ns/mnt") == namespace_;
  }

  bool isMappedHere(std::string_view line) const {
    const auto mapping = parseMapping(line);
    return mapping && isAtOrBelow(mapping->path, pointInMaps_) &&
           std::find(devices_.begin(), devices_.end(), mapping->device) != devices_.end();
  }

  std::string proc_;
  std::uint64_t mountId_;
  std::string point_;
  std::string pointInMaps_;
  bool network_;
  std::string namespace_;
  std::vector<DeviceNumber> devices_;
};

}  // namespace

std::optional<pid_t> findHolder(const LinuxOptions& options, const TargetVolume& volume) try {
  const Scan scan(options, volume);
  const std::vector<pid_t> ids = listProcesses(options.procRoot);
  const auto open = std::find_if(ids.begin(), ids.end(), [&](pid_t id) { return scan.usesOpenly(id); });
  if (open != ids.end()) return *open;
  const auto mapping = std::find_if(ids.begin(), ids.end(), [&](pid_t id) { return scan.maps(id); });
  return mapping == ids.end() ? std::nullopt : std::optional(*mapping);
} catch (const NotReadable&) {
  return std::nullopt;  // best effort: the refusal itself counts
}

}  // namespace kmv
