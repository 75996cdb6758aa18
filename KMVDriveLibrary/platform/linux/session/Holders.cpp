// SPDX-License-Identifier: MIT
#include "platform/linux/session/Holders.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <algorithm>
#include <charconv>
#include <string>
#include <string_view>
#include <vector>

#include "base/Text.h"
#include "platform/linux/mounts/VolumeRules.h"
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

/// "fd:1a", as the list of mappings writes device numbers.
std::optional<DeviceNumber> parseHexNumber(std::string_view text) {
  DeviceNumber number;
  const char* const end = text.data() + text.size();
  const auto majorPart = std::from_chars(text.data(), end, number.major, 16);
  if (majorPart.ptr == end || *majorPart.ptr != ':') return std::nullopt;
  const auto minorPart = std::from_chars(majorPart.ptr + 1, end, number.minor, 16);
  return minorPart.ptr == end ? std::optional(number) : std::nullopt;
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
    const std::string status = readAttribute(tasks + "/" + name + "/stat");
    const std::size_t nameEnd = status.rfind(") ");
    return nameEnd != std::string::npos && status.substr(nameEnd + 2, 1) == "D";
  });
}

class Scan {
 public:
  Scan(const LinuxOptions& options, const TargetVolume& volume)
      : proc_(options.procRoot),
        mountId_(volume.mountId),
        point_(options.viewRoot + volume.mountPoint),
        network_(isNetworkKind(volume.kind)),
        namespace_(readLink(proc_ + "/self/ns/mnt")),
        devices_{volume.device} {
    for (const char c : point_) pointInMaps_ += c == '\n' ? std::string("\\012") : std::string(1, c);
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
      return isOpenHere(readAttribute(folder + "/fdinfo/" + name));
    });
  }

  bool maps(pid_t id) const {
    const std::string folder = folderOf(id);
    if (isStuck(folder)) return false;
    const auto text = readFile(folder + "/maps");
    std::string_view rest = text ? std::string_view(*text) : std::string_view();
    while (!rest.empty()) {
      const std::size_t end = rest.find('\n');
      if (isMappedHere(rest.substr(0, end))) return true;
      rest = end == std::string_view::npos ? std::string_view() : rest.substr(end + 1);
    }
    return false;
  }

 private:
  std::string folderOf(pid_t id) const { return proc_ + "/" + std::to_string(id); }

  static bool isAtOrBelow(std::string_view path, std::string_view point) {
    return path == point || isBelow(path, point);
  }

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

  bool isOpenHere(std::string_view descriptor) const {
    constexpr std::string_view kField = "\nmnt_id:";
    const std::size_t at = descriptor.find(kField);
    if (at == std::string_view::npos) return false;
    const std::string_view rest = descriptor.substr(at + kField.size());
    return parseNumber(trimmed(rest.substr(0, rest.find('\n')))) == mountId_;
  }

  /// "7f00-7f10 r--p 00000000 fd:01 12    /path".
  bool isMappedHere(std::string_view line) const {
    takeWord(line), takeWord(line), takeWord(line);
    const auto device = parseHexNumber(takeWord(line));
    takeWord(line);
    line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
    return device && isAtOrBelow(line, pointInMaps_) &&
           std::find(devices_.begin(), devices_.end(), *device) != devices_.end();
  }

  std::string proc_;
  std::uint64_t mountId_;
  std::string point_;
  std::string pointInMaps_;  // line feeds are escaped there, and nothing else
  bool network_;
  std::string namespace_;
  std::vector<DeviceNumber> devices_;
};

}  // namespace

std::optional<pid_t> findHolder(const LinuxOptions& options, const TargetVolume& volume) {
  const Scan scan(options, volume);
  const std::vector<pid_t> ids = listProcesses(options.procRoot);
  const auto open = std::find_if(ids.begin(), ids.end(), [&](pid_t id) { return scan.usesOpenly(id); });
  if (open != ids.end()) return *open;
  const auto mapping = std::find_if(ids.begin(), ids.end(), [&](pid_t id) { return scan.maps(id); });
  return mapping == ids.end() ? std::nullopt : std::optional(*mapping);
}

}  // namespace kmv
