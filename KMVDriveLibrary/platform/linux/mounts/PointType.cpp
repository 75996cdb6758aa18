// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/PointType.h"

#include <fcntl.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/syscall.h>

#include <cerrno>
#include <optional>

#include "platform/posix/FileDescriptor.h"

namespace kmv {
namespace {

/// A look at the cache fails while anything is mounted or renamed anywhere (a sequence lock), so it is retried.
constexpr int kMostTries = 16;

/// The kernel's cache of names alone is asked (RESOLVE_CACHED), and no file system: neither what is mounted nor
/// what the path leads through, which may be an overlay with a dead server in its lower layer. None when the
/// cache does not tell, before kernel 5.12, and without a descriptor.
std::optional<bool> cachedIsDirectory(const std::string& viewRoot, const std::string& point) {
  // Apart, since /proc/PID/root is a link that the cache cannot follow.
  const FileDescriptor root(::open((viewRoot + "/").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  open_how how{};
  how.flags = O_PATH | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;
  how.resolve = RESOLVE_CACHED | RESOLVE_IN_ROOT;
  for (int look = 0; look < kMostTries; ++look) {
    const FileDescriptor folder(
        static_cast<int>(::syscall(SYS_openat2, root.get(), point.c_str(), &how, sizeof how)));
    if (folder) return true;
    if (errno == ENOTDIR) return false;
    if (errno != EAGAIN) break;
  }
  return std::nullopt;
}

}  // namespace

// The one place where the backend asks a mounted file system by itself, and only where the whole way there is
// local. The kernel pins a mount's root in memory, so the answer needs no device I/O.
bool pointIsDirectory(const std::string& viewRoot, const MountEntry& mount, bool isLocal) {
  if (const auto cached = cachedIsDirectory(viewRoot, mount.point); cached || !isLocal)
    return cached.value_or(true);
  const std::string path = viewRoot + mount.point;
  struct statx status {};
  const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
  if (::statx(AT_FDCWD, path.c_str(), flags, STATX_TYPE, &status) != 0) return true;
  return (status.stx_mask & STATX_TYPE) == 0 || S_ISDIR(status.stx_mode);
}

}  // namespace kmv
