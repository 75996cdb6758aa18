// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

/// Something that another of the maker's applications, or another part of this one, moved. Immutable.
struct KMV_EXPORT IOActivityUpdate {
  virtual ~IOActivityUpdate();
};

/// Bytes moved in a file; counts of 0 or below say nothing.
struct KMV_EXPORT URLActivityUpdate : IOActivityUpdate {
  URLActivityUpdate(kmv::URL fileURL, std::int64_t read, std::int64_t written);
  ~URLActivityUpdate() override;

  kmv::URL url;
  std::int64_t bytesRead;
  std::int64_t bytesWritten;
};

/// What this library needs of the maker's tracking service: whoever registers hears every update. The service
/// itself is the host's: it publishes what it learns. Threads: every member may be called from any thread.
class KMV_EXPORT ApplicationIOTrackingDelegate {
 public:
  using Update = std::shared_ptr<const IOActivityUpdate>;
  using UpdateHandler = std::function<void(const Update& update)>;

  /// The one of the process. (shared)
  static ApplicationIOTrackingDelegate& shared();

  /// Calls `handler` with each update from now on, for as long as the process lives.
  void addUpdateHandler(UpdateHandler handler);
  /// Hands an update to the handlers, on the calling thread.
  void publish(const Update& update);

 private:
  kmv::AtomicProperty<std::shared_ptr<const std::vector<UpdateHandler>>> handlers_;
};

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
