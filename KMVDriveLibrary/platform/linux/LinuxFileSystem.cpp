// SPDX-License-Identifier: MIT
#include "platform/linux/LinuxFileSystem.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include "platform/linux/FileDescriptor.h"
#include "platform/linux/Files.h"
#include "platform/linux/PointType.h"

namespace kmv {
LinuxFileSystem::LinuxFileSystem(const LinuxOptions& options)
    : mountTable_(options.procRoot + "/self/mountinfo"), viewRoot_(options.viewRoot), lookup_(options) {}

MountTree LinuxFileSystem::readMountTree() const {
  MountTree tree([this](const MountEntry& mount) { return pointIsDirectory(viewRoot_, mount); });
  MountDelta everything;
  everything.attached = parseMountInfo(readFile(mountTable_).value_or(std::string()));
  tree.apply(everything);
  return tree;
}

std::vector<URL> LinuxFileSystem::mountedVolumeURLs() {
  std::vector<URL> urls;
  readMountTree().forEach([&](const MountEntry& entry, std::string_view rule) {
    if (rule.empty()) urls.push_back(URL::fileURLWithPath(entry.point, /*isDirectory=*/true));
  });
  return urls;
}

std::vector<HiddenMount> LinuxFileSystem::hiddenMounts() {
  std::vector<HiddenMount> mounts;
  readMountTree().forEach([&](const MountEntry& entry, std::string_view rule) {
    if (!rule.empty()) mounts.push_back({entry.point, entry.kind, std::string(rule)});
  });
  return mounts;
}

std::optional<URL> LinuxFileSystem::volumeURL(const URL& url) {
  if (!url.isFileURL()) return std::nullopt;
  const std::string path = url.path();
  if (path.empty() || path.front() != '/') return std::nullopt;
  return lookup_.volumeHolding(path);
}

std::optional<std::string> LinuxFileSystem::readRegularFile(const std::string& path, std::size_t mostBytes) {
  // Whatever is there may be hostile: a device must not be opened, a link not followed, a pipe not waited
  // for. What is looked at first may be another thing by the time it is opened, so it is looked at twice.
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
  if (static_cast<std::uintmax_t>(status.st_size) > mostBytes) return std::nullopt;
  std::string bytes(mostBytes + 1, '\0');  // one more, to see a file that grew meanwhile
  std::size_t filled = 0;
  while (filled < bytes.size()) {
    const ssize_t got = ::read(file.get(), bytes.data() + filled, bytes.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
  }
  if (filled > mostBytes) return std::nullopt;
  bytes.resize(filled);
  return bytes;
}

bool LinuxFileSystem::itemExists(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

std::optional<std::string> LinuxFileSystem::realPath(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> resolved(::realpath(path.c_str(), nullptr), std::free);
  return resolved ? std::optional<std::string>(resolved.get()) : std::nullopt;
}

const std::vector<std::string>& LinuxFileSystem::pathAliasPrefixes() {
  static const std::vector<std::string> none;
  return none;
}

}  // namespace kmv
