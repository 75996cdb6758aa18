// SPDX-License-Identifier: MIT
#include "platform/macos/MacItemLook.h"

#include <fcntl.h>
#include <sys/param.h>
#include <sys/stat.h>
#include <sys/xattr.h>

#include <array>

#include "platform/macos/MacAttributes.h"
#include "platform/posix/Retry.h"

namespace kmv {

std::unique_ptr<ItemLook> makeItemLook(const std::string& attribute, const std::string&) {
  return std::make_unique<macos::MacItemLook>(attribute);
}

namespace macos {
namespace {

What whatOf(mode_t mode) {
  if (S_ISDIR(mode)) return What::folder;
  return S_ISLNK(mode) ? What::link : What::file;
}

/// The path of `name` in the open folder; none when that has no path any more.
std::optional<std::string> pathIn(int folder, const char* name) {
  if (folder == AT_FDCWD) return name;
  std::array<char, MAXPATHLEN> path;
  if (::fcntl(folder, F_GETPATH, path.data()) < 0) return std::nullopt;
  return std::string(path.data()) + "/" + name;
}

}  // namespace

void MacItemLook::lookAt(int descriptor, const char* name, SeenItem& item) {
  struct stat status {};
  const int result = retryOnEINTR([&] { return ::fstatat(descriptor, name, &status, AT_SYMLINK_NOFOLLOW); });
  item.what = result == 0 ? whatOf(status.st_mode) : What::nothing;
  item.size = result == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
  if (item.what != What::file || item.size != 0 || attribute_.empty()) return;
  if (const auto path = pathIn(descriptor, name))
    item.attribute = attributeOf(*path, attribute_, XATTR_NOFOLLOW);
}

std::optional<std::string> MacItemLook::valueByPath(const std::string& path) const {
  return attribute_.empty() ? std::nullopt : attributeOf(path, attribute_, 0);
}

}  // namespace macos
}  // namespace kmv
