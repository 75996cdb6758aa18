// SPDX-License-Identifier: MIT
#pragma once

#include <string_view>

#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

// What a mount's own record says about it, without looking at any other.

/// Why a mount is no volume. Empty: it is one.
namespace rule {
inline constexpr std::string_view kPseudo = "pseudo";      // no storage behind it
inline constexpr std::string_view kHelper = "helper";      // a desktop's or container's own FUSE mount
inline constexpr std::string_view kSnap = "snap";          // an application image
inline constexpr std::string_view kFile = "file";          // a single file is mounted
inline constexpr std::string_view kCovered = "covered";    // another mount on the same point hides it
inline constexpr std::string_view kShadowed = "shadowed";  // another mount on a folder above hides it
inline constexpr std::string_view kBind = "bind";          // the same volume again
inline constexpr std::string_view kFolder = "folder";      // a folder of a volume that is mounted elsewhere
}  // namespace rule

bool isFuseKind(std::string_view kind);
bool isNetworkKind(std::string_view kind);

/// True when neither a server nor another file system, which may have one, can stand behind this kind. What is
/// not known counts as one that may.
bool isLocalKind(std::string_view kind);

/// True when a block device lies behind the mount: its device number says so, or, for file systems that span
/// devices, its source.
bool isBlockBacked(const MountEntry& entry);

/// The rule that hides the mount whatever else is mounted; empty when none does.
std::string_view ownRule(const MountEntry& entry);

/// True when the mount shows a whole volume: the whole file system, or exactly one btrfs subvolume.
bool showsWholeVolume(const MountEntry& entry);

/// The kernel's own limit of mounts standing on mounts is far below; a table read in the middle of a change
/// may hold a cycle.
inline constexpr int kDeepestNesting = 1000;

/// Calls `visit` with each folder above `path`, nearest first, "/" last, until it returns true.
template <typename Visit>
bool anyFolderAbove(std::string_view path, Visit visit) {
  while (path.size() > 1) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string_view::npos) return false;
    path = slash == 0 ? std::string_view("/") : path.substr(0, slash);
    if (visit(path)) return true;
  }
  return false;
}

/// The text range of all paths strictly below `folder`: from the first to just before the second.
struct PathRange {
  std::string from;
  std::string to;
};
PathRange pathsBelow(std::string_view folder);

}  // namespace kmv
