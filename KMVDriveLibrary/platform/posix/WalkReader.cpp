// SPDX-License-Identifier: MIT
#include "platform/posix/WalkReader.h"

#include <fcntl.h>

#include <cerrno>
#include <climits>
#include <string_view>

#include "platform/posix/Retry.h"

namespace kmv {
namespace {

constexpr std::size_t kLongestListing = std::size_t{1} << 28;  // bytes of names; a longer one is not listed
constexpr int kOpenFolder = O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK;

/// False for what the platform keeps to itself.
bool isListedName(std::string_view name) {
  return name != "." && name != ".." && !name.starts_with("._");
}

int openFolder(const WalkedFolder& folder) {
  const WalkedFolder* const parent = folder.parent;
  const bool goesByName = parent != nullptr && parent->depth < WalkReader::kDeepestKeptOpen &&
                          parent->descriptor && !folder.isFollowed;
  const int from = goesByName ? parent->descriptor.get() : AT_FDCWD;
  const char* const path = folder.path.c_str() + (goesByName ? folder.path.rfind('/') + 1 : 0);
  const int flags = kOpenFolder | (folder.isFollowed ? 0 : O_NOFOLLOW);
  return retryOnEINTR([&] { return ::openat(from, path, flags); });
}

/// True for a cycle. Only a link can lead to a folder above; without one on the way, equal numbers, which not
/// every server keeps unique, are another folder's. Also true when nothing can be known.
bool isBeingWalked(WalkedFolder& folder) {
  const auto identity = identityOf(folder.descriptor.get());
  if (!identity) return true;
  folder.identity = *identity;
  if (folder.linksFollowed == 0 || identity->inode == 0) return false;
  for (const WalkedFolder* above = folder.parent; above != nullptr; above = above->parent) {
    if (above->identity == *identity) return true;
  }
  return false;
}

/// False when the listing is too long.
bool addItem(WalkedFolder& folder, std::string_view name, bool isFolder) {
  WalkedItem item;
  item.nameAt = static_cast<std::uint32_t>(folder.names.size());
  folder.names.append(name).push_back('\0');
  if (isFolder && folder.path.size() + 1 + name.size() < PATH_MAX) {
    folder.folders.push_back(std::make_unique<WalkedFolder>(&folder, item.nameAt));
    item.folder = folder.folders.back().get();
  }
  folder.items.push_back(std::move(item));
  return folder.names.size() + folder.folders.size() * sizeof(WalkedFolder) <= kLongestListing;
}

}  // namespace

void WalkReader::list(WalkedFolder& folder) {
  if (folder.path.empty())
    folder.path.append(folder.parent->path).append("/").append(folder.parent->names.data() + folder.nameAt);
  folder.isStarved = false;
  folder.descriptor = FileDescriptor(openFolder(folder));
  if (!folder.descriptor) {
    folder.isNone = errno == ENOTDIR || errno == ELOOP;
    folder.isStarved = errno == EMFILE || errno == ENFILE;
    return;
  }
  if (isBeingWalked(folder)) return;
  const auto add = [&](const char* name, bool isFolder) {
    return !isListedName(name) || addItem(folder, name, isFolder);
  };
  errno = 0;
  if (readEntries(folder.descriptor.get(), add)) return;
  folder.isStarved = errno == EMFILE || errno == ENFILE;  // a system may need one more to list
  if (folder.isStarved) folder.descriptor.reset();
  folder.items.clear();
  folder.folders.clear();
}

void WalkReader::look(WalkedFolder& folder, std::size_t begin, std::size_t end) {
  for (std::size_t i = begin; i < end; ++i) {
    WalkedItem& item = folder.items[i];
    const char* const name = folder.nameOf(item);
    if (folder.descriptor) {
      look_->lookAt(folder.descriptor.get(), name, item);
    } else {
      look_->lookAt(AT_FDCWD, (folder.path + "/" + name).c_str(), item);
    }
  }
}

}  // namespace kmv
