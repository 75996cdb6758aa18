// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/Value.h>

#include <memory>
#include <optional>
#include <string_view>
#include <utility>

namespace kmv {

/// A copy of the URL under `key`; none where there is no URL.
inline std::optional<URL> urlUnder(std::string_view key, const Dictionary& contents) {
  const URL* url = contents.url(key);
  return url == nullptr ? std::nullopt : std::optional(*url);
}

/// The platform's description of the disk as of now; null without a disk, and when it cannot be described.
inline DictionarySnapshot descriptionOf(const Disk* disk) {
  auto description = disk == nullptr ? std::nullopt : disk->copyDescription();
  return description ? std::make_shared<const Dictionary>(std::move(*description)) : nullptr;
}

}  // namespace kmv
