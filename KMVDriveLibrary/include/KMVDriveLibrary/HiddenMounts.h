// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <cstdint>
#include <string>
#include <vector>

namespace kmv {

/// A mount that is not reported as a drive, and why.
struct HiddenMount {
  std::string path;  ///< the mount point, as bytes
  std::string kind;  ///< the file system's type, as in "DAVolumeKind"
  std::string rule;  ///< the rule that hid it: see docs/platforms.md
};

/// The mounts of this process's view that the platform does not report as drives, in the order of its mount
/// table.
/// Reads the table; touches no mounted file system.
/// Thread: any.
KMV_EXPORT std::vector<HiddenMount> hiddenMounts();

/// How the library hears of mounts.
struct MountEvents {
  std::string
      watcher;  ///< "fanotify", "listmount" or "mountinfo", best first: see docs/platforms.md; empty elsewhere
  std::string reason;  ///< why it is not a better one, for people; empty for the best
  /// Mounts that may have come and gone unseen since the library was first asked: what the kernel reported and
  /// nothing explains. A remount counts where the kernel's reports name nothing.
  std::uint64_t missed = 0;
};

/// The way in use now: a sandbox that begins later may change it.
/// Thread: any.
KMV_EXPORT MountEvents mountEvents();

}  // namespace kmv
