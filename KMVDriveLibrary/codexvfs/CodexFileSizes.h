// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/URL.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>

#include "platform/TreeWalk.h"

/// The sizes of a Codex volume's files: by their own, by the attribute that stands for it where a file is
/// empty, or by what was found before. A sum that 64 bits cannot hold stops the process: a programming
/// error by the library's contract.
///
/// Threads: all on one queue, that of the wrapper's sizes; `aggregateSize` on any thread.
class CodexFileSizes {
 public:
  /// The sum of the sizes of all files below `folder`, in bytes; each is remembered by its path. Waits for
  /// the volume.
  std::int64_t walk(const std::string& folder);

  /// The size of one file by the rule; none where the rule fails. Waits for the volume.
  static std::optional<std::int64_t> sizeOfFile(const kmv::URL& file);

  /// The sum of the absolute values of all remembered sizes.
  std::int64_t aggregateSize() const { return aggregateSize_.load(); }

 private:
  void count(const kmv::WalkedFile& file, std::int64_t& total);
  void remember(std::string_view path, std::int64_t size, std::int64_t& total);
  std::optional<std::int64_t> known(std::string_view path) const;

  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
  };
  std::unordered_map<std::string, std::int64_t, Hash, std::equal_to<>> cachedFileSizeLookup_;
  std::atomic<std::int64_t> aggregateSize_{0};
  bool asksHelpers_ = false;
};
