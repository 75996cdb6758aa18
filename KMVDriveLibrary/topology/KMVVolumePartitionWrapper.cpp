// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/KMVRootDiskWrapper.h>
#include <KMVDriveLibrary/KMVVolumePartitionWrapper.h>

KMVVolumePartitionWrapper::~KMVVolumePartitionWrapper() = default;
