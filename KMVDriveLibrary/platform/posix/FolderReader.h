// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <cstddef>
#include <functional>
#include <optional>
#include <string>

// What each system's folder defines for the walk, beside `makeItemLook` in ItemLook.h.

namespace kmv {

/// Tells two folders apart as long as both are open.
struct FolderIdentity {
  dev_t device = 0;
  ino_t inode = 0;  ///< 0: the file system has none
  friend bool operator==(const FolderIdentity&, const FolderIdentity&) = default;
};

/// Is told of one entry of a folder, "." and ".." included; `isFolder` is the listing's word, true only when
/// it is sure. False ends the listing.
using VisitEntry = std::function<bool(const char* name, bool isFolder)>;

/// Reads an open folder from its beginning; false when it was not read to its end.
bool readEntries(int folder, const VisitEntry& visit);

/// The open folder's identity; none when it cannot be asked.
std::optional<FolderIdentity> identityOf(int folder);

/// How many threads beside the caller make a walk on this volume faster, at most `most`.
std::size_t usefulHelpers(const std::string& folder, std::size_t most);

/// Runs `help` on another thread; false, and it will not run, when no thread can be had for it.
bool offerHelper(std::function<void()> help);

}  // namespace kmv
