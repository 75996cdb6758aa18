// SPDX-License-Identifier: MIT
#include "platform/macos/MacVolumes.h"

#include <CoreFoundation/CoreFoundation.h>

#include <string_view>

#include "platform/macos/CF.h"
#include "platform/macos/MountTable.h"
#include "platform/macos/Values.h"
#include "platform/posix/Retry.h"

namespace kmv::macos {
namespace {

/// The rule that hides the mount; null for a volume.
const char* ruleThatHides(const struct statfs& mount) {
  if (std::string_view(mount.f_fstypename) == "devfs") return "pseudo";
  return (mount.f_flags & MNT_UNION) != 0 ? "union" : nullptr;
}

}  // namespace

std::vector<URL> MacVolumes::mountedVolumeURLs() {
  std::vector<URL> urls;
  for (const struct statfs& mount : mountTable()) {
    if (ruleThatHides(mount) == nullptr)
      urls.push_back(URL::fileURLWithPath(mount.f_mntonname, /*isDirectory=*/true));
  }
  return urls;
}

std::vector<HiddenMount> MacVolumes::hiddenMounts() {
  std::vector<HiddenMount> hidden;
  for (const struct statfs& mount : mountTable()) {
    if (const char* rule = ruleThatHides(mount))
      hidden.push_back({mount.f_mntonname, mount.f_fstypename, rule});
  }
  return hidden;
}

std::optional<Space> MacVolumes::spaceAt(const std::string& path) {
  struct statfs volume {};
  if (retryOnEINTR([&] { return ::statfs(path.c_str(), &volume); }) != 0) return std::nullopt;
  return Space{volume.f_blocks * volume.f_bsize, volume.f_bfree * volume.f_bsize,
               volume.f_bavail * volume.f_bsize, (volume.f_flags & MNT_RDONLY) != 0};
}

/// On an object of this call's own: URLs cache such answers until their thread's run loop turns.
std::optional<URL> MacVolumes::volumeURL(const URL& url) {
  const AutoreleaseScope scope;
  const auto item = url.isFileURL() ? createURL(url) : CF<CFURLRef>();
  CFURLRef volume = nullptr;
  if (!item || !CFURLCopyResourcePropertyForKey(item.get(), kCFURLVolumeURLKey, &volume, nullptr))
    return std::nullopt;
  const auto owned = CF<CFURLRef>::adopt(volume);
  return owned ? urlOf(owned.get()) : std::nullopt;
}

}  // namespace kmv::macos
