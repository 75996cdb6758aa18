// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <string_view>

namespace kmv {

/// Aborts the process after writing "KMVDriveLibrary: " and `message` to standard error: for programming
/// errors that would otherwise hang or corrupt.
[[noreturn]] KMV_EXPORT void fatal(std::string_view message);

}  // namespace kmv
