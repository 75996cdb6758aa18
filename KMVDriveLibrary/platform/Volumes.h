// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/Space.h>
#include <KMVDriveLibrary/URL.h>

#include <optional>
#include <string>
#include <vector>

namespace kmv {

/// What is mounted, and which volume holds a path.
/// Every member may be called from any thread.
class Volumes {
 public:
  virtual ~Volumes() = default;

  /// The root URLs (directory URLs) of the mounted volumes, in the order of the mount table.
  /// Touches no volume.
  virtual std::vector<URL> mountedVolumeURLs() = 0;

  /// The mounts that are not volumes, with the rule that excluded them, in the order of the mount table.
  /// Touches no volume.
  virtual std::vector<HiddenMount> hiddenMounts() = 0;

  /// How mounts are heard of; empty where something else tells the library of them, each by itself.
  virtual MountEvents mountEvents() { return {}; }

  /// The room on the volume that holds the item at `path`; none when it cannot be asked.
  /// Waits for the volume.
  virtual std::optional<Space> spaceAt(const std::string& path) = 0;

  /// The root URL (a directory URL) of the volume that holds the item at `url`; none when there is no such
  /// item, or the URL is not an absolute file URL.
  /// Links in the path are followed; a link as the last component is treated as the platform does (Linux and
  /// the simulated machine follow it, macOS answers for the link itself).
  /// Bind mounts and stacked mounts give the volume that really holds the item; a pseudo file system, which
  /// is not a volume, gives its own mount point.
  /// Triggers no automount.
  /// Waits only for volumes that the path leads through.
  virtual std::optional<URL> volumeURL(const URL& url) = 0;
};

}  // namespace kmv
