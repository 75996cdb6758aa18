// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/URL.h>

#include <optional>
#include <vector>

namespace kmv {

/// What is mounted, and which volume holds a place. Every member may be called from any thread.
class Volumes {
 public:
  virtual ~Volumes() = default;

  /// The root URLs (directory URLs) of the mounted volumes, in the order of the mount table. Touches no
  /// volume.
  virtual std::vector<URL> mountedVolumeURLs() = 0;

  /// The mounts that are no volumes, with the rule that says so, in the order of the mount table. Touches no
  /// volume.
  virtual std::vector<HiddenMount> hiddenMounts() = 0;

  /// The root URL (a directory URL) of the volume that holds the item at `url`; none when there is no such
  /// item, or the URL is no absolute file URL. Links on the way are followed; a link as the last component as
  /// the platform does it (Linux and the simulated machine follow it, macOS answers for the link itself).
  /// Binds and mounts over mounts give the volume
  /// that really holds the item; a place that is no volume (a pseudo file system) gives its own mount point.
  /// Mounts nothing by itself. Waits for no volume but those that the path leads through.
  virtual std::optional<URL> volumeURL(const URL& url) = 0;
};

}  // namespace kmv
