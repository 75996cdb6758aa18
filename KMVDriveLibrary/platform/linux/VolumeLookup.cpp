// SPDX-License-Identifier: MIT
#include "platform/linux/VolumeLookup.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <cerrno>

#include "platform/linux/PointType.h"

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
  struct statx status {};
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
    : watcher_(makeMountInfoWatcher(options.procRoot)),
      tree_([view = options.viewRoot](const MountEntry& mount) { return pointIsDirectory(view, mount); }) {}

VolumeLookup::~VolumeLookup() = default;

std::optional<URL> VolumeLookup::volumeHolding(const std::string& path) {
  for (int look = 0;; ++look) {
    const Answer answer = askForMount(path);
    const bool isDenied = answer.error == EACCES || answer.error == EPERM || answer.error == ENOSYS;
    if (answer.error != 0 && !isDenied) return std::nullopt;
    std::lock_guard lock(mutex_);
    const Table table = followTable();
    if (isDenied) {  // the text is all there is to go by
      const MountEntry* mount = tree_.mountAbove(path);
      return mount == nullptr ? std::nullopt : volumeOfMount(mount->id);
    }
    if (table == Table::unchanged || look == kMostLooks) return volumeOfMount(answer.mountId);
  }
}

VolumeLookup::Table VolumeLookup::followTable() {
  pollfd table{watcher_->descriptor(), POLLPRI, 0};
  const bool reported = ::poll(&table, 1, 0) > 0;
  if (!reported && isRead_) return Table::unchanged;
  isRead_ = true;
  const MountDelta delta = watcher_->refresh(reported);
  if (delta.empty()) return Table::changed;  // it may have changed and changed back since the path was asked
  tree_.apply(delta);
  roots_.clear();
  return Table::changed;
}

std::optional<URL> VolumeLookup::volumeOfMount(std::uint64_t mountId) {
  if (const auto known = roots_.find(mountId); known != roots_.end()) return known->second;
  const MountEntry* volume = tree_.volumeOf(mountId);
  if (volume == nullptr) return std::nullopt;  // mounted elsewhere, or no longer
  return roots_.emplace(mountId, URL::fileURLWithPath(volume->point, /*isDirectory=*/true)).first->second;
}

}  // namespace kmv
