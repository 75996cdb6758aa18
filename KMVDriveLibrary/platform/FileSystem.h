// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/URL.h>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kmv {

/// The file system as the library asks about it. Paths are bytes. Every member may be called from any thread.
class FileSystem {
 public:
  virtual ~FileSystem() = default;

  /// The root URLs (directory URLs) of the mounted volumes, in the order of the mount table. Touches no
  /// volume.
  virtual std::vector<URL> mountedVolumeURLs() = 0;

  /// The mounts that are no volumes, with the rule that says so, in the order of the mount table. Touches no
  /// volume.
  virtual std::vector<HiddenMount> hiddenMounts() = 0;

  /// The root URL (a directory URL) of the volume that holds the item at `url`, links followed; none when
  /// there is no such item, or the URL is no absolute file URL. Binds and mounts over mounts give the volume
  /// that really holds the item; a place that is no volume (a pseudo file system) gives its own mount point.
  /// Mounts nothing by itself. Waits for no volume but those that the path leads through.
  virtual std::optional<URL> volumeURL(const URL& url) = 0;

  /// The bytes of the regular file at `path`; none when there is none, when it cannot be read, when it is
  /// longer than `mostBytes`, or when the last component is a link, a device, a pipe or anything else that is
  /// no regular file. Never waits for a writer and leaves no descriptor open.
  virtual std::optional<std::string> readRegularFile(const std::string& path, std::size_t mostBytes) = 0;

  /// True when something exists at `path`, links followed. May wait for the volume: only for a host's own
  /// question.
  virtual bool itemExists(const std::string& path) = 0;

  /// The path with every symbolic link resolved; none when it does not exist. May wait for the volume.
  virtual std::optional<std::string> realPath(const std::string& path) = 0;

  /// Prefixes that name the same place as the path without them, longest first ("/private" on one platform,
  /// nothing on others). Path standardising strips the first that fits, if what remains exists. Lives as long
  /// as this object.
  virtual const std::vector<std::string>& pathAliasPrefixes() = 0;
};

}  // namespace kmv
