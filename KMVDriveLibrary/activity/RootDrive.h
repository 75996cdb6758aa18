// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/URL.h>

#include <optional>

namespace kmv::activity {

/// The mount URL of the drive that holds `file`, asked of the shared registry; none for what it does not
/// know.
inline std::optional<URL> rootDriveOf(const URL& file) {
  try {
    return KMVDiskArbiter::sharedInstance().findRootDriveURLForPathURL(file);
  } catch (const Exception&) {
    return std::nullopt;
  }
}

}  // namespace kmv::activity
