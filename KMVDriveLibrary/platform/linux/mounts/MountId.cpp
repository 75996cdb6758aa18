// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountId.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace kmv {
namespace {

// Newer than some C libraries know.
constexpr unsigned kStatxMountId = 0x1000;

MountIdAnswer ask(int descriptor, const char* path, int flags) {
  struct statx status;  // filled by the call; clearing it would cost a tenth of what a look-up does beside it
  if (::statx(descriptor, path, flags | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, 0, &status) != 0)
    return {errno, 0};
#ifdef STATX_MNT_ID
  if ((status.stx_mask & kStatxMountId) != 0) return {0, status.stx_mnt_id};
#endif
  return {ENOSYS, 0};
}

}  // namespace

MountIdAnswer mountIdAtPath(const std::string& path) {
  return ask(AT_FDCWD, path.c_str(), 0);
}

MountIdAnswer mountIdOfOpenFile(int descriptor) {
  return ask(descriptor, "", AT_EMPTY_PATH);
}

}  // namespace kmv
