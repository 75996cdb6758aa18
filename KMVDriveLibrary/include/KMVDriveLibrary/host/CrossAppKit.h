// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// Something that another of the maker's applications, or another part of this one, moved.
/// Immutable.
struct KMV_EXPORT IOActivityUpdate {
  virtual ~IOActivityUpdate();
};

/// Bytes moved in a file; counts of 0 or below are ignored.
struct KMV_EXPORT URLActivityUpdate : IOActivityUpdate {
  URLActivityUpdate(kmv::URL fileURL, std::int64_t read, std::int64_t written);
  ~URLActivityUpdate() override;

  kmv::URL url;
  std::int64_t bytesRead;
  std::int64_t bytesWritten;
};

/// What this library needs of the maker's tracking service: registered handlers receive every update.
/// The host is the service: it publishes what it learns.
/// Threads: every member may be called from any thread.
class KMV_EXPORT ApplicationIOTrackingDelegate {
 public:
  using Update = std::shared_ptr<const IOActivityUpdate>;
  using UpdateHandler = std::function<void(const Update& update)>;

  /// The tracking service of the process.
  /// Selector: shared
  static ApplicationIOTrackingDelegate& shared();

  /// Calls `handler` with each later update until the process ends; an empty one is ignored.
  void addUpdateHandler(UpdateHandler handler);
  /// Calls the handlers on the calling thread.
  void publish(const Update& update);

 private:
  kmv::AtomicProperty<std::shared_ptr<const std::vector<UpdateHandler>>> handlers_;
};

/// An extended attribute could not be read, or is not an integer.
class KMV_EXPORT ExtendedAttributesError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
  ~ExtendedAttributesError() override;
};

/// What this library needs of the maker's shared helpers for files.
/// Each has a working default and one setter that replaces it; an empty function restores the default.
/// A replacement may throw anything: for a size or an attribute that counts as unknown inside the library.
/// Threads: every member may be called from any thread.
/// All may wait for the volume of their file.
class KMV_EXPORT CrossAppFileManager {
 public:
  using VolumeRoot = std::function<std::optional<kmv::URL>(const kmv::URL&)>;
  using FileSize = std::function<std::optional<std::uint64_t>(std::string_view path)>;
  using ShouldContinue = std::function<bool()>;
  using AggregateFileSize =
      std::function<std::uint64_t(const kmv::URL&, const ShouldContinue&, unsigned options)>;
  using ExtendedAttributeAsInt = std::function<std::int64_t(const kmv::URL&, std::string_view name)>;

  /// Leaves out items below the folder whose names begin with a dot.
  static constexpr unsigned kSkipsHiddenFiles = 4;

  /// The file manager of the process.
  /// Lifetime: the process.
  static CrossAppFileManager& defaultManager();

  /// The standardised root of the volume that holds the item at `url`; none when there is no such item.
  /// The default asks the file system for the path.
  /// Selector: standardizedVolumeRootForFilePathURL(_:)
  std::optional<kmv::URL> standardizedVolumeRootForFilePathURL(const kmv::URL& url) const;
  void setStandardizedVolumeRootForFilePathURL(VolumeRoot function);

  /// The size in bytes that the file system reports for the item itself, a link not followed; none when it is
  /// unknown.
  /// Selector: sizeOfFileAtPath(path:)
  std::optional<std::uint64_t> sizeOfFileAtPath(std::string_view path) const;
  void setSizeOfFileAtPath(FileSize function);

  /// The sum of the sizes in bytes of the item at `url` and, if it is a folder, of the files below it.
  /// `shouldContinue`, if given, is called before each of these; false ends the sum with what it has so far.
  /// Failure: throws a std::exception, and whatever `shouldContinue` throws; the default throws
  /// std::runtime_error for a missing item and a sum beyond 64 bits.
  /// Selector: aggregateFileSize(ofURL:shouldContinue:options:)
  std::uint64_t aggregateFileSize(const kmv::URL& ofURL, const ShouldContinue& shouldContinue,
                                  unsigned options) const;
  void setAggregateFileSize(AggregateFileSize function);

  /// The integer in an extended attribute; the default takes a decimal number with an optional sign, trimmed
  /// of white space and NULs.
  /// Failure: throws ExtendedAttributesError when there is no such attribute, it cannot be read, or it is not
  /// a 64-bit integer.
  /// Selector: getExtendedAttributeAsInt(named:)
  std::int64_t getExtendedAttributeAsInt(const kmv::URL& url, std::string_view named) const;
  void setGetExtendedAttributeAsInt(ExtendedAttributeAsInt function);

  /// True when one of the three members above was replaced: sizes must then come from these members, not from
  /// the file system.
  bool hasReplacedFileSizes() const;

 private:
  kmv::AtomicProperty<VolumeRoot> volumeRoot_;
  kmv::AtomicProperty<FileSize> fileSize_;
  kmv::AtomicProperty<AggregateFileSize> aggregateFileSize_;
  kmv::AtomicProperty<ExtendedAttributeAsInt> attributeAsInt_;
};
