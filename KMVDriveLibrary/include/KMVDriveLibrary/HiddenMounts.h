// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

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

}  // namespace kmv
