// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Error.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

/// Kinds of media in the maker's data framework.
/// This library finds solid state, FUSE and generic only.
/// The order is part of the maker's contract.
enum class IOMediaKind { rotational, solidState, fuse, network, tape, generic };

/// The volume record of the maker's data framework, as far as this library fills it.
struct IOVolume {
  kmv::URL volumeURL;
  IOMediaKind mediaKind = IOMediaKind::generic;
  // Left empty by this library.
  std::optional<std::int64_t> capacity = std::nullopt;            ///< bytes
  std::optional<std::int64_t> availableCapacity = std::nullopt;   ///< bytes
  std::optional<std::int64_t> preferredBlockSize = std::nullopt;  ///< bytes
};

/// Reads a file's bytes in blocks, as far as this library needs it of the maker's data framework: opens,
/// delivers one block after the other, closes.
/// Single use.
/// Threads: one at a time.
/// A handler may be called before its member returns, or later on another thread.
class KMV_EXPORT StreamFileReader {
 public:
  using Buffer = std::unique_ptr<std::byte[]>;
  using OpenHandler = std::function<void(bool isOpen)>;
  /// Owns the block; `stop` set to true ends the cycle.
  using UpdateBlock = std::function<void(Buffer bytes, std::size_t byteCount, bool& stop)>;
  using CompletionBlock = std::function<void(const std::optional<kmv::Error>& error)>;
  using Factory = std::function<std::shared_ptr<StreamFileReader>(const kmv::URL& file)>;

  /// The library holds a reader until it has closed, and its handlers hold the reader weakly: one that stores
  /// them is released like any other. One that never calls them blocks whoever asked for the size.
  /// A reader of `file` with its own buffer size, queue and descriptor flags.
  /// The default reads regular files on the calling thread in blocks of a megabyte, and calls every handler
  /// before the member returns.
  /// Selector: StreamFileReader(file:bufferSize:queue:fileDescriptorFlags:)
  static std::shared_ptr<StreamFileReader> reader(const kmv::URL& file);
  /// Replaces what `reader` makes; an empty function restores the default.
  static void setFactory(Factory factory);

  virtual ~StreamFileReader();

  /// Opens the file; `completion` hears whether that worked.
  /// Selector: openForReading(_:)
  virtual void openForReading(OpenHandler completion) = 0;
  /// Hands over every block up to the end of the file, then calls `completionBlock`, with the error that
  /// ended the cycle, if one did.
  /// A file that is not open is an error.
  /// Selector: beginByteSupplyCycle(updateBlock:completionBlock:)
  virtual void beginByteSupplyCycle(UpdateBlock updateBlock, CompletionBlock completionBlock) = 0;
  /// Closes the file.
  /// Selector: closeIOWithCompletionHandler(_:)
  virtual void closeIOWithCompletionHandler(std::function<void()> completion) = 0;
};
