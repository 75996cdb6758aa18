// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/NumberOrder.h>
#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/Value.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

// What this library needs from the maker's application framework.

/// "virtualFileSystemWrapperHasUpdated", posted when the size of a virtual file system has been worked out;
/// the object is its wrapper.
extern KMV_EXPORT const std::string_view virtualFileSystemWrapperHasUpdated;

/// Kinds of virtual file systems.
/// This library makes the third only; its raw value, 2, is part of the maker's contract.
enum class VirtualFileSystemType : std::int64_t { none = 0, archive = 1, codexHDE = 2 };

/// A mounted virtual file system, as the application framework uses it.
class KMV_EXPORT VirtualFileSystemWrapper {
 public:
  /// Takes a size in bytes.
  using SizeHandler = std::function<void(std::int64_t byteCount)>;

  virtual ~VirtualFileSystemWrapper();

  /// The kind of the file system, for users.
  virtual std::string driveTypeString() const = 0;
  /// The mount point.
  virtual kmv::URL vfsRoot() const = 0;
  /// True once the volume is built.
  virtual bool vfsIsReady() = 0;
  virtual VirtualFileSystemType vfsType() const = 0;
  virtual bool sizeIsCalculated() const = 0;
  /// Bytes; none until it is known.
  virtual std::optional<std::int64_t> estimatedVFSSize() const = 0;
  /// The file system's attributes of the root; none when it is not there.
  virtual std::optional<kmv::Dictionary> vfsFileAttributes() const = 0;
  virtual std::optional<kmv::Date> vfsLastModifiedDate() const = 0;
  /// Called with the size when it has been worked out.
  virtual SizeHandler sizeUpdated() const = 0;
  virtual void setSizeUpdated(SizeHandler handler) = 0;
  /// Reads the volume's state again, and its size too if wanted.
  virtual void updateWrapper(bool shouldUpdateSize) = 0;
  /// The size of a file or folder in bytes; 0 when it is unknown.
  virtual std::int64_t getFileSizeOfItem(const kmv::URL& at) = 0;
};

/// Keeps the wrappers of drives for the application.
/// `Codex` is the type of its wrappers of virtual file systems, `Volume` that of its whole disks.
template <typename Codex, typename Volume = kmv::Object>
class ORVAppDriveWrapperManager {
 public:
  /// By BSD unit.
  using VolumeWrappers = std::map<kmv::Value, std::shared_ptr<Volume>, kmv::NumberOrder>;
  /// By the path of the drive's root.
  using CodexVFSWrappers = std::map<std::string, std::shared_ptr<Codex>>;

  virtual ~ORVAppDriveWrapperManager() = default;

  virtual VolumeWrappers volumeWrappers() const = 0;
  virtual CodexVFSWrappers codexVFSWrappers() const = 0;
};
