// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/URL.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/mounts/MountTableWatcher.h"
#include "platform/linux/mounts/MountTree.h"
#include "platform/posix/FileDescriptor.h"

namespace kmv {

/// Which volume holds a path: one statx for the mount's id, then a look-up in a kept mount table.
///
/// The kernel gives mount ids again, so an id counts only when the table did not change between the last look
/// at it and the answer; asking whether it did is a poll of its descriptor. The table is read again only
/// after a change. Threads: any. The path is asked outside the locks, so a look-up that waits for a dead
/// server delays no other, and threads keep what they found apart, so that they do not wait for each other.
class VolumeLookup {
 public:
  explicit VolumeLookup(const LinuxOptions& options);
  ~VolumeLookup();

  /// The root of the volume that holds the item at `path`; none when there is no such item.
  std::optional<URL> volumeHolding(const std::string& path);

 private:
  /// The kept table.
  class Table {
   public:
    explicit Table(const LinuxOptions& options);
    std::optional<URL> rootOfMount(std::uint64_t mountId);
    /// By the text of the path, which is all there is to go by where the path may not be asked.
    std::optional<URL> rootAbove(const std::string& path);

   private:
    void follow();
    std::optional<URL> rootOf(std::uint64_t mountId) const;

    std::mutex mutex_;
    std::unique_ptr<MountTableWatcher> watcher_;
    MountTree tree_;
    bool isRead_ = false;
  };

  /// Roots that some threads found since the table last changed, by mount id. A line of the processor's cache
  /// to itself, like what the kernel keeps of its descriptor.
  struct alignas(64) Cache {
    /// True once after each change of the table, and at first.
    bool isOutdated(const std::string& mountTable);

    std::mutex mutex;
    FileDescriptor file;
    std::atomic<std::uint64_t> changes{0};  // seen by whichever of its threads looked
    std::unordered_map<std::uint64_t, URL> roots;
  };
  static constexpr std::size_t kCaches = 8;

  Cache& cacheOfThisThread();
  std::optional<URL> rootIfCertain(Cache& cache, std::uint64_t mountId, std::uint64_t changesBefore,
                                   bool& isCertain);

  const std::string mountTable_;
  Table table_;
  std::array<Cache, kCaches> caches_;
};

}  // namespace kmv
