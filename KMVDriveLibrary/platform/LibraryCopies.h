// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

namespace kmv {

/// How many copies of the library the process has, the shared library and archives that were linked into programs or
/// other libraries. The linker makes one of this variable, while each copy counts itself once.
KMV_EXPORT inline int libraryCopies = 0;

}  // namespace kmv
