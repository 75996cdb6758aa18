// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountId.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

namespace kmv {
namespace {

// Newer than some C libraries know.
constexpr unsigned kStatxMountId = 0x1000;
constexpr unsigned kStatxUniqueMountId = 0x4000;

MountIdAnswer ask(int descriptor, const char* path, int flags, MountIdKind wanted) {
  struct statx status;  // filled by the call; clearing it would cost a tenth of what a look-up does beside it
  const unsigned mask = wanted == MountIdKind::uniqueIfKnown ? kStatxUniqueMountId : 0;
  if (::statx(descriptor, path, flags | AT_NO_AUTOMOUNT | AT_STATX_DONT_SYNC, mask, &status) != 0)
    return {errno};
#ifdef STATX_MNT_ID
  if ((status.stx_mask & kStatxUniqueMountId) != 0) return {0, status.stx_mnt_id, /*isUnique=*/true};
  if ((status.stx_mask & kStatxMountId) != 0) return {0, status.stx_mnt_id};
#endif
  return {ENOSYS};
}

}  // namespace

MountIdAnswer mountIdAtPath(const std::string& path, MountIdKind wanted) {
  return ask(AT_FDCWD, path.c_str(), 0, wanted);
}

MountIdAnswer mountIdOfOpenFile(int descriptor) {
  return ask(descriptor, "", AT_EMPTY_PATH, MountIdKind::reused);
}

}  // namespace kmv
