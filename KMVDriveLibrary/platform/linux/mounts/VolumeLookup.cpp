// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/VolumeLookup.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <atomic>
#include <cerrno>

#include "platform/linux/mounts/PointType.h"

namespace kmv {
namespace {

/// A table that changes faster than it can be looked at is taken as it is after so many looks.
constexpr int kMostLooks = 16;

// Newer than some C libraries know.
constexpr unsigned kStatxMountId = 0x1000;

struct Answer {
  int error = 0;
  std::uint64_t mountId = 0;
};

/// Asks for nothing but the mount, which the kernel knows by itself: another user's or a stopped server is
/// not asked about the mount's root. Automounts stay as they are.
Answer askForMount(const std::string& path) {
  struct statx status;  // filled by the call; clearing it would cost a tenth of what the rest here does
  if (::statx(AT_FDCWD, path.c_str(), AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, 0, &status) != 0)
    return {errno, 0};
  if ((status.stx_mask & kStatxMountId) == 0) return {ENOSYS, 0};
#ifdef STATX_MNT_ID
  return {0, status.stx_mnt_id};
#else
  return {ENOSYS, 0};
#endif
}

}  // namespace

VolumeLookup::VolumeLookup(const LinuxOptions& options)
    : mountTable_(options.procRoot + "/self/mountinfo"), table_(options) {}

VolumeLookup::~VolumeLookup() = default;

std::optional<URL> VolumeLookup::volumeHolding(const std::string& path) {
  Cache& cache = cacheOfThisThread();
  for (int look = 0;; ++look) {
    const std::uint64_t changesBefore = cache.changes;
    const Answer answer = askForMount(path);
    if (answer.error == EACCES || answer.error == EPERM || answer.error == ENOSYS)
      return table_.rootAbove(path);
    if (answer.error != 0) return std::nullopt;
    bool isCertain = false;
    auto root = rootIfCertain(cache, answer.mountId, changesBefore, isCertain);
    if (isCertain || look == kMostLooks) return root;
  }
}

/// Certain is what was found without a change of the table since before the path was asked.
/// Another thread of the cache may have seen the change, which the descriptor reports only once.
std::optional<URL> VolumeLookup::rootIfCertain(Cache& cache, std::uint64_t mountId,
                                               std::uint64_t changesBefore, bool& isCertain) {
  const std::lock_guard lock(cache.mutex);
  isCertain = !cache.isOutdated(mountTable_) && cache.changes == changesBefore;
  const auto known = cache.roots.find(mountId);
  if (known != cache.roots.end()) return known->second;
  auto root = table_.rootOfMount(mountId);
  isCertain = isCertain && !cache.isOutdated(mountTable_);
  if (root && isCertain) cache.roots.emplace(mountId, *root);
  return root;
}

VolumeLookup::Cache& VolumeLookup::cacheOfThisThread() {
  static std::atomic<std::size_t> threads{0};
  static thread_local const std::size_t number = threads.fetch_add(1, std::memory_order_relaxed);
  return caches_[number % kCaches];
}

bool VolumeLookup::Cache::isOutdated(const std::string& mountTable) {
  pollfd table{file.get(), POLLPRI, 0};
  if (file && ::poll(&table, 1, 0) <= 0) return false;
  // Without a descriptor nothing is ever certain, nor kept.
  if (!file) file = FileDescriptor(::open(mountTable.c_str(), O_RDONLY | O_CLOEXEC));
  roots.clear();
  ++changes;
  return true;
}

VolumeLookup::Table::Table(const LinuxOptions& options)
    : watcher_(makeMountInfoWatcher(options.procRoot)),
      tree_([view = options.viewRoot](const MountEntry& mount) { return pointIsDirectory(view, mount); }) {}

std::optional<URL> VolumeLookup::Table::rootOfMount(std::uint64_t mountId) {
  const std::lock_guard lock(mutex_);
  follow();
  return rootOf(mountId);
}

std::optional<URL> VolumeLookup::Table::rootAbove(const std::string& path) {
  const std::lock_guard lock(mutex_);
  follow();
  const MountEntry* mount = tree_.mountAbove(path);
  return mount == nullptr ? std::nullopt : rootOf(mount->id);
}

void VolumeLookup::Table::follow() {
  pollfd table{watcher_->descriptor(), POLLPRI, 0};
  const bool reported = ::poll(&table, 1, 0) > 0;
  if (!reported && isRead_) return;
  isRead_ = true;
  tree_.apply(watcher_->refresh(reported));
}

std::optional<URL> VolumeLookup::Table::rootOf(std::uint64_t mountId) const {
  const MountEntry* volume = tree_.volumeOf(mountId);
  if (volume == nullptr) return std::nullopt;  // mounted elsewhere, or no longer
  return URL::fileURLWithPath(volume->point, /*isDirectory=*/true);
}

}  // namespace kmv
