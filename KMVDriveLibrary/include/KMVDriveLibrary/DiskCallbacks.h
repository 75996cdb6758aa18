// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/Export.h>

// The functions that the registry registers with the platform's arbitration session. `context` is the
// `KMVDiskArbiter` that is to hear of the event. They run on that session's queue (the registry's arbiter
// queue). Failure: without a context or a description nothing happens.

/// A disk appeared; one that is mounted carries "DAVolumePath".
extern "C" KMV_EXPORT void NewDiskAppeared(kmv::Disk* disk, void* context);

/// A disk disappeared; its description is the last known one.
extern "C" KMV_EXPORT void DiskDisappeared(kmv::Disk* disk, void* context);

/// The description of a disk changed; `changedKeys` names what differs and may be null for nothing.
extern "C" KMV_EXPORT void DiskDescriptionChanged(kmv::Disk* disk, const kmv::ChangedKeys* changedKeys,
                                                  void* context);
