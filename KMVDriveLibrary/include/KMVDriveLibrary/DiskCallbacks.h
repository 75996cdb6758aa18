// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/Export.h>

// The functions that the registry registers with the platform's arbitration session, and those that it hands
// over with a command.
// `context` is the `KMVDiskArbiter` that is to hear of the event.
// Queue: the session's (the registry's arbiter queue).
// Failure: the first three do nothing without a context or a description.

/// A disk appeared; one that is mounted carries "DAVolumePath".
extern "C" KMV_EXPORT void NewDiskAppeared(kmv::Disk* disk, void* context);

/// A disk disappeared; its description is the last known one.
extern "C" KMV_EXPORT void DiskDisappeared(kmv::Disk* disk, void* context);

/// The description of a disk changed; `changedKeys` names what differs and may be null for nothing.
extern "C" KMV_EXPORT void DiskDescriptionChanged(kmv::Disk* disk, const kmv::ChangedKeys* changedKeys,
                                                  void* context);

/// An unmount that the registry asked for has ended.
/// Success (`dissenter` is null) is not announced: the volume disappears like any other.
/// A refusal posts `kDiskEjectionRejected`, on this queue, with a dictionary as its object: "pid" and
/// "status" are the dissenter's numbers (0 where it has none), "volName" is, on purpose, a URL and no name:
/// the disk's "DAVolumePath", or the URL of the string "Unknown" without one.
extern "C" KMV_EXPORT void DiskUnmountCallback(kmv::Disk* disk, const kmv::Dictionary* dissenter,
                                               void* context);

/// A rename that the registry asked for has ended.
/// Posts `kDiskArbiterRenameSucceeded`, or with a dissenter `kDiskArbiterRenameFailed`, on this queue: the
/// object is the registry, the user info holds the disk's "DAVolumePath" of this moment and is empty when it
/// has none.
extern "C" KMV_EXPORT void DiskRenameCallback(kmv::Disk* disk, const kmv::Dictionary* dissenter,
                                              void* context);
