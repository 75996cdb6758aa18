// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/Value.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kmv {

/// The bytes of a file, or why there are none.
struct FileBytes {
  enum class Failure { missing, notPermitted, unreadable };
  std::optional<std::string> bytes = {};
  Failure failure = Failure::unreadable;  ///< where there are no bytes
};

/// A file that is read from its beginning to its end. One thread at a time.
class FileStream {
 public:
  virtual ~FileStream() = default;
  /// Reads up to `mostBytes`; empty at the end, none on an error. Waits for the volume.
  virtual std::optional<std::string> read(std::size_t mostBytes) = 0;
};

/// What stands at a path, links followed. Whatever is no folder counts as a file.
enum class ItemKind { none, file, folder };

/// One file of a walk. Its texts are valid until the visit returns.
struct WalkedFile {
  std::string_view path;
  std::uint64_t size;  ///< bytes, of the item itself when it is a link
  std::optional<std::string_view>
      attribute;  ///< of a file of size 0: the attribute asked for, if it can be read
};

/// Is told of one file; false ends the walk. Must not throw.
using VisitFile = std::function<bool(const WalkedFile&)>;

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

  /// The bytes of the regular file at `path`, read past the system's cache where that is possible. None when
  /// there is none, when it cannot be read, when it is longer than `mostBytes`, or when the last component is
  /// a link, a device, a pipe or anything else that is no regular file. Never waits for a writer and leaves
  /// no descriptor open. May wait for the volume.
  virtual FileBytes readRegularFile(const std::string& path, std::size_t mostBytes) = 0;

  /// The regular file at `path`, links followed, opened for reading; null when it cannot be.
  virtual std::unique_ptr<FileStream> openForReading(const std::string& path) = 0;

  /// May wait for the volume, as all that follow.
  virtual ItemKind itemKind(const std::string& path) = 0;

  /// The size in bytes of the item itself, a link not followed; none when there is no such item.
  virtual std::optional<std::uint64_t> sizeOfItem(const std::string& path) = 0;

  /// What is known of the item itself, a link not followed: "NSFileSize", "NSFileModificationDate",
  /// "NSFileType" and so on, as far as the system has them; none when there is no such item.
  virtual std::optional<Dictionary> attributesOfItem(const std::string& path) = 0;

  /// Visits every file below `folder` on the calling thread, depth first and in the order in which the system
  /// lists the folders, with its size and, where that is 0, the value of `attribute` (empty: none is asked
  /// for). Names that begin with "._" are not listed. What is missing or cannot be listed is passed over.
  /// Links are followed to folders, and no folder is entered that is being walked already. Paths are
  /// `folder`, "/" and names.
  virtual void visitFiles(const std::string& folder, const std::string& attribute,
                          const VisitFile& visit) = 0;

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
