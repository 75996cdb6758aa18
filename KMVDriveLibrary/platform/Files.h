// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace kmv {

/// The bytes of a file, or why there are none.
struct FileBytes {
  enum class Failure { missing, notPermitted, unreadable };
  std::optional<std::string> bytes = {};
  Failure failure = Failure::unreadable;  ///< where there are no bytes
};

/// A file that is read sequentially.
/// Threads: one at a time.
class FileStream {
 public:
  virtual ~FileStream() = default;
  /// Reads up to `mostBytes`; empty at the end, none on an error.
  /// Waits for the volume.
  virtual std::optional<std::string> read(std::size_t mostBytes) = 0;
};

/// What is at a path, links followed.
/// Anything but a folder counts as a file.
enum class ItemKind { none, file, folder };

/// Single files and folders.
/// Paths are bytes.
/// Every member may be called from any thread.
class Files {
 public:
  virtual ~Files() = default;

  /// The bytes of the regular file at `path`, read past the system's cache where that is possible.
  /// None when there is none, when it cannot be read, when it is longer than `mostBytes`, or when the last
  /// component is a link, a device, a pipe or anything else but a regular file.
  /// Never waits for the writer of a pipe and leaves no descriptor open.
  /// May wait for the volume.
  virtual FileBytes readRegularFile(const std::string& path, std::size_t mostBytes) = 0;

  /// The regular file at `path`, links followed, opened for reading; null when it cannot be.
  virtual std::unique_ptr<FileStream> openForReading(const std::string& path) = 0;

  /// May wait for the volume.
  virtual ItemKind itemKind(const std::string& path) = 0;

  /// Attributes of the item itself, a link not followed: "NSFileSize", "NSFileModificationDate", "NSFileType"
  /// and so on, as far as the system has them; none when there is no such item.
  virtual std::optional<Dictionary> attributesOfItem(const std::string& path) = 0;

  /// The path with every symbolic link resolved; none when it does not exist.
  /// May wait for the volume.
  virtual std::optional<std::string> realPath(const std::string& path) = 0;

  /// Prefixes that name the same place as the path without them, longest first ("/private" on one platform,
  /// nothing on others).
  /// Path standardising strips the first that fits, if what remains exists.
  /// Lifetime: this object's.
  virtual const std::vector<std::string>& pathAliasPrefixes() = 0;

  /// The process's working folder, absolute; none when it was removed.
  /// Touches no volume.
  virtual std::optional<std::string> currentFolder() = 0;
};

}  // namespace kmv
