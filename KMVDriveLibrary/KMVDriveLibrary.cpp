// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVDriveLibraryVersion.h>

const double KMVDriveLibraryVersionNumber = 1.0;
const unsigned char KMVDriveLibraryVersionString[] =
    "@(#)PROGRAM:KMVDriveLibrary  PROJECT:KMVDriveLibrary-1\n";
