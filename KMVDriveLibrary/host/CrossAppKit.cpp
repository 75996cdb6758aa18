// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/host/CrossAppKit.h>

#include <utility>

#include "platform/Platform.h"

CrossAppFileManager& CrossAppFileManager::defaultManager() {
  static auto* manager =
      new CrossAppFileManager;  // never destroyed: any thread may ask until the process is gone
  return *manager;
}

std::optional<kmv::URL> CrossAppFileManager::standardizedVolumeRootForFilePathURL(const kmv::URL& url) const {
  if (const VolumeRoot replacement = volumeRoot_.get()) return replacement(url);
  const auto volume = kmv::Platform::current().fileSystem().volumeURL(url);
  return volume ? std::optional(kmv::URLByStandardizingPath(*volume)) : std::nullopt;
}

void CrossAppFileManager::setStandardizedVolumeRootForFilePathURL(VolumeRoot function) {
  volumeRoot_.set(std::move(function));
}
