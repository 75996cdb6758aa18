// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

/// The library's version: 1.0.
extern "C" KMV_EXPORT const double KMVDriveLibraryVersionNumber;
/// "@(#)PROGRAM:KMVDriveLibrary  PROJECT:KMVDriveLibrary-1" and a line feed, ended by NUL.
extern "C" KMV_EXPORT const unsigned char KMVDriveLibraryVersionString[];
