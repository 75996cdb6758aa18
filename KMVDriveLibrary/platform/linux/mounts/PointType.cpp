// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/PointType.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace kmv {

// The one place where the backend asks a mounted file system by itself. The kernel pins a mount's root in
// memory, so the answer needs no device I/O; local ancestors make sure that the way there needs no server.
bool pointIsDirectory(const std::string& viewRoot, const MountEntry& mount) {
  const std::string path = viewRoot + mount.point;
  struct statx status {};
  const int flags = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC;
  if (::statx(AT_FDCWD, path.c_str(), flags, STATX_TYPE, &status) != 0) return true;
  return (status.stx_mask & STATX_TYPE) == 0 || S_ISDIR(status.stx_mode);
}

}  // namespace kmv
