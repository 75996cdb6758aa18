// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/URL.h>

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/mounts/MountId.h"
#include "platform/linux/mounts/MountTable.h"

namespace kmv {

/// Which volume holds an item: one question for its mount's id, then a look-up in the mount table.
///
/// The kernel reuses mount ids, so an id counts only when the table did not change between the last look at
/// it and the answer; asking whether it did is one poll. Threads: any. The item is asked
/// outside the locks, so a look-up that waits for a dead server delays no other, and what was found is cached
/// in shards, so that threads do not contend.
class VolumeLookup {
 public:
  VolumeLookup(const LinuxOptions& options, std::shared_ptr<MountTable> mounts);
  ~VolumeLookup();

  /// The root of the volume that holds the item at `path`; none when there is no such item.
  std::optional<URL> volumeHolding(const std::string& path);

 private:
  using Question = std::function<MountIdAnswer()>;
  struct Answer {
    int error = 0;  // of the question
    std::optional<URL> root;
  };

  /// Roots that some threads found since the table last changed, by mount id. On a cache line of its own,
  /// against false sharing, like what the kernel keeps of its descriptor.
  struct alignas(64) Cache {
    /// True once after each change of the table, and at first.
    bool isOutdated() KMV_REQUIRES(mutex);

    Mutex mutex;
    std::unique_ptr<MountChangeProbe> probe KMV_GUARDED_BY(mutex);
    std::atomic<std::uint64_t> changes{0};  // seen by whichever of its threads looked
    std::unordered_map<std::uint64_t, URL> roots KMV_GUARDED_BY(mutex);
  };
  static constexpr std::size_t kCaches = 8;

  Answer find(const Question& ask);
  Cache& cacheOfThisThread();
  std::optional<URL> rootIfCertain(Cache& cache, std::uint64_t mountId, std::uint64_t changesBefore,
                                   bool& isCertain);
  std::optional<URL> rootOfMount(std::uint64_t mountId) const;
  std::optional<URL> rootAbove(const std::string& path) const;

  const std::string view_;
  const std::shared_ptr<MountTable> mounts_;
  std::array<Cache, kCaches> caches_;
};

}  // namespace kmv
