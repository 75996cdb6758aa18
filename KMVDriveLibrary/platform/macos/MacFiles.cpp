// SPDX-License-Identifier: MIT
#include "platform/macos/MacFiles.h"

#include <fcntl.h>
#include <sys/stat.h>

#include "platform/posix/ItemAttributes.h"
#include "platform/posix/RegularFile.h"

namespace kmv {

/// Keeps the kernel from caching what is read from now on.
void dropCache(int file) {
  ::fcntl(file, F_NOCACHE, 1);
}

std::optional<ItemStatus> statusOfItem(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return std::nullopt;
  return ItemStatus{.mode = status.st_mode,
                    .size = static_cast<std::uint64_t>(status.st_size),
                    .links = status.st_nlink,
                    .device = static_cast<std::uint64_t>(status.st_dev),
                    .inode = status.st_ino,
                    .owner = status.st_uid,
                    .group = status.st_gid,
                    .modified = status.st_mtimespec,
                    .created = status.st_birthtimespec};
}

namespace macos {

FileBytes MacFiles::readRegularFile(const std::string& path, std::size_t mostBytes) {
  return readRegularFileAt(path, mostBytes);
}

std::unique_ptr<FileStream> MacFiles::openForReading(const std::string& path) {
  return openRegularFile(path);
}

ItemKind MacFiles::itemKind(const std::string& path) {
  return kindOfItem(path);
}

std::optional<Dictionary> MacFiles::attributesOfItem(const std::string& path) {
  return attributesOfItemAt(path);
}

std::optional<std::string> MacFiles::realPath(const std::string& path) {
  return resolvedPath(path);
}

std::optional<std::string> MacFiles::currentFolder() {
  return workingFolder();
}

const std::vector<std::string>& MacFiles::pathAliasPrefixes() {
  static const std::vector<std::string> prefixes = {"/private/var/automount", "/var/automount", "/private"};
  return prefixes;
}

}  // namespace macos
}  // namespace kmv
