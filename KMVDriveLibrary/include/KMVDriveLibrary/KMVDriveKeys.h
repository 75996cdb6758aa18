// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <atomic>
#include <optional>
#include <string_view>

// Names of notifications and keys of drive dictionaries.
// The texts are part of the library's contract.
// Several differ from the names of their constants: compare with the constants, or with the texts byte for
// byte.

// Notifications, posted on `kmv::NotificationCenter::defaultCenter()`; threads and objects: docs/threads.md.

/// "kDiskArbiterNewDiskDictionary".
extern KMV_EXPORT const std::string_view kDiskArbiterNewDiskDetectedNotification;
/// "kDiskArbiterDiskDictionaryRemoved".
extern KMV_EXPORT const std::string_view kDiskArbiterRemovedDiskDetectedNotification;
/// "kDiskArbiterDictionaryChanged".
extern KMV_EXPORT const std::string_view kDiskArbiterChangedDiskDetectedNotification;
/// "kDiskEjectionRejected".
extern KMV_EXPORT const std::string_view kDiskEjectionRejected;
/// "kDiskArbiterRenameSucceeded".
extern KMV_EXPORT const std::string_view kDiskArbiterRenameSucceeded;
/// "kDiskArbiterRenameFailed".
extern KMV_EXPORT const std::string_view kDiskArbiterRenameFailed;
/// "kDiskArbiterDriveActivityDidUpdateNotification", posted by the activity monitor.
extern KMV_EXPORT const std::string_view kDiskArbiterDriveActivityDidUpdateNotification;

// Keys of drive dictionaries.
// Some are the platform's own description keys on purpose: a drive dictionary is the description with
// additions.

/// "DiskLTOArbiterTapeKey": any; marks a tape drive.
extern KMV_EXPORT const std::string_view kDiskLTOArbiterTapeKey;
/// "DAVolumeName": text.
extern KMV_EXPORT const std::string_view kDiskVolumeName;
/// "DAVolumePath": URL of the mount point.
extern KMV_EXPORT const std::string_view kDiskURLKey;
/// "driveUUIDKey": text, the drive's identity.
/// Absent for a volume without a UUID, and for one whose disk did not answer in time (`KMVDiskArbiter`, Late).
extern KMV_EXPORT const std::string_view kDiskUUIDKey;
/// "DAMediaRemovableActual": boolean, the registry's verdict.
/// The misspelling of the name is intended.
extern KMV_EXPORT const std::string_view kDiskRemoveableKey;
/// "DAAppearanceTime": real, seconds since 2001 UTC.
extern KMV_EXPORT const std::string_view kDiskAppearanceTimeKey;
/// "DAVolumeNetwork": boolean.
extern KMV_EXPORT const std::string_view kDiskNetworkKey;
/// "driveOldURLKey": URL before the last rename.
extern KMV_EXPORT const std::string_view kDiskOldURLKey;
/// "diskMountedPriorToApplicationInstance": boolean, true when the volume was mounted before the registry
/// started.
extern KMV_EXPORT const std::string_view kDiskMountedPriorToApplicationInstance;
/// "kDiskWrapperKey": object, the drive's place in its disk.
extern KMV_EXPORT const std::string_view kDiskWrapperKey;
/// "DADeviceModel": text.
extern KMV_EXPORT const std::string_view kDADeviceModel;

namespace kmv {

/// A text variable that is empty until the registry fills it.
/// Threads: every member may be called from any thread.
class KMV_EXPORT KeyVariable {
 public:
  constexpr KeyVariable() = default;
  /// The text; none before the first call of `KMVDiskArbiter::sharedInstance()`.
  std::optional<std::string_view> value() const {
    const char* text = text_.load(std::memory_order_acquire);
    return text == nullptr ? std::nullopt : std::optional<std::string_view>(text);
  }
  /// Stores a text that lives as long as the process.
  void assign(const char* text) { text_.store(text, std::memory_order_release); }

 private:
  std::atomic<const char*> text_{nullptr};
};

}  // namespace kmv

// Variables, not constants: empty until `KMVDiskArbiter::sharedInstance()` fills them, which it does on every
// call.

/// "DAVolumeKind" once filled.
extern KMV_EXPORT kmv::KeyVariable kDAVolumeKindKey;
/// "DAMediaBSDName" once filled.
extern KMV_EXPORT kmv::KeyVariable kDAMediaBSDName;
/// "DAMediaBSDUnit" once filled.
extern KMV_EXPORT kmv::KeyVariable kDAMediaBSDUnit;
/// "DAMediaContent" once filled.
extern KMV_EXPORT kmv::KeyVariable kDAMediaContentKey;
