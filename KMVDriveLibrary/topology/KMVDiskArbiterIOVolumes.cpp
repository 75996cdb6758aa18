// SPDX-License-Identifier: MIT
// The registry's drives as the volume records that the maker's data framework works with.
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/host/CrossAppKit.h>

#include <string>
#include <string_view>
#include <utility>

#include "base/Text.h"

namespace {

/// True when `text` contains `letters` in either case. REQUIRES: `letters` are capitals.
bool containsInAnyCase(const std::string* text, std::string_view letters) {
  return text != nullptr && kmv::upperCase(*text).find(letters) != std::string::npos;
}

IOVolume volumeOf(const kmv::URL& url, const kmv::Dictionary& drive) {
  const auto kindKey = kDAVolumeKindKey.value();
  IOVolume volume{url};
  if (kindKey && containsInAnyCase(drive.text(*kindKey), "FUSE")) {
    volume.mediaKind = IOMediaKind::fuse;  // wins over what the device calls itself
  } else if (containsInAnyCase(drive.text(kDADeviceModel), "SSD")) {
    volume.mediaKind = IOMediaKind::solidState;
  }
  return volume;
}

}  // namespace

void KMVDiskArbiter::enumerateIOVolumes(
    const std::function<void(const IOVolume& volume, bool& stop)>& didFindVolume) const {
  bool stop = false;
  for (const auto& [key, drive] : mountedDictionaries()) {
    const kmv::URL* url = drive->url(kDiskURLKey);  // the drive's own, not the key
    if (url == nullptr) continue;
    didFindVolume(volumeOf(*url, *drive), stop);
    if (stop) return;
  }
}

std::optional<IOVolume> KMVDiskArbiter::rootVolume(const kmv::URL& forUrl) {
  const auto root = CrossAppFileManager::defaultManager().standardizedVolumeRootForFilePathURL(forUrl);
  if (!root) return std::nullopt;
  try {
    const Drive drive = findRootMountDictionaryForURL(root);
    if (drive == nullptr) return std::nullopt;
    return volumeOf(*root, *drive->snapshot());  // with the root that was asked for, not the drive's own URL
  } catch (const kmv::Exception&) {
    return std::nullopt;  // the volume went away meanwhile
  }
}
