// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>

namespace kmv {

/// The keys whose values differ or that only one of them has, in ascending order.
KMV_EXPORT ChangedKeys differingKeys(const Dictionary& a, const Dictionary& b);

}  // namespace kmv
