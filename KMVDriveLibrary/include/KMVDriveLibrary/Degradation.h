// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <string>
#include <vector>

namespace kmv {

/// What the library cannot read of this machine at present, in ascending order: "devices unreadable" (drives
/// and disks may be missing, or as they were), "drives not followed" (no thread or descriptor is left for it;
/// tried again every second), "mount table unreadable".
/// Empty while its lists are the whole truth.
/// Each is logged as an error when it begins, as "degraded: mount table unreadable", and when it is over, as
/// info, "no longer degraded: mount table unreadable".
/// Thread: any.
KMV_EXPORT std::vector<std::string> degradations();

}  // namespace kmv
