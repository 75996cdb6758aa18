// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>

#include <functional>
#include <optional>

/// What this library needs of the maker's shared helpers for files. Each has a working default and one setter
/// that replaces it; an empty function brings the default back. Threads: every member may be called from any
/// thread.
class KMV_EXPORT CrossAppFileManager {
 public:
  using VolumeRoot = std::function<std::optional<kmv::URL>(const kmv::URL&)>;

  /// The one of the process.
  static CrossAppFileManager& defaultManager();

  /// The standardised root of the volume that holds the item at `url`; none when there is no such item. The
  /// default asks the file system for the path. Selector: standardizedVolumeRootForFilePathURL(_:)
  std::optional<kmv::URL> standardizedVolumeRootForFilePathURL(const kmv::URL& url) const;
  void setStandardizedVolumeRootForFilePathURL(VolumeRoot function);

 private:
  kmv::AtomicProperty<VolumeRoot> volumeRoot_;
};
