// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/URL.h>

#include <optional>
#include <string>

namespace kmv::tool {

/// The place that a path on the command line names. Paths are the caller's; the library's are absolute. None
/// for an empty path, which names nothing, and for a relative one when the working directory is gone.
std::optional<URL> locationOf(const std::string& path);

}  // namespace kmv::tool
