// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>

// These texts are compared byte for byte by hosts. That some differ from their names is intended.
constinit const std::string_view kDiskArbiterNewDiskDetectedNotification = "kDiskArbiterNewDiskDictionary";
constinit const std::string_view kDiskArbiterRemovedDiskDetectedNotification =
    "kDiskArbiterDiskDictionaryRemoved";
constinit const std::string_view kDiskArbiterChangedDiskDetectedNotification =
    "kDiskArbiterDictionaryChanged";
constinit const std::string_view kDiskEjectionRejected = "kDiskEjectionRejected";
constinit const std::string_view kDiskArbiterRenameSucceeded = "kDiskArbiterRenameSucceeded";
constinit const std::string_view kDiskArbiterRenameFailed = "kDiskArbiterRenameFailed";
constinit const std::string_view kDiskArbiterDriveActivityDidUpdateNotification =
    "kDiskArbiterDriveActivityDidUpdateNotification";

constinit const std::string_view kDiskLTOArbiterTapeKey = "DiskLTOArbiterTapeKey";
constinit const std::string_view kDiskVolumeName = kmv::key::kVolumeName;
constinit const std::string_view kDiskURLKey = kmv::key::kVolumePath;
constinit const std::string_view kDiskUUIDKey = "driveUUIDKey";
constinit const std::string_view kDiskRemoveableKey = "DAMediaRemovableActual";
constinit const std::string_view kDiskAppearanceTimeKey = kmv::key::kAppearanceTime;
constinit const std::string_view kDiskNetworkKey = kmv::key::kVolumeNetwork;
constinit const std::string_view kDiskOldURLKey = "driveOldURLKey";
constinit const std::string_view kDiskMountedPriorToApplicationInstance =
    "diskMountedPriorToApplicationInstance";
constinit const std::string_view kDiskWrapperKey = "kDiskWrapperKey";
constinit const std::string_view kDADeviceModel = kmv::key::kDeviceModel;

constinit kmv::KeyVariable kDAVolumeKindKey;
constinit kmv::KeyVariable kDAMediaBSDName;
constinit kmv::KeyVariable kDAMediaBSDUnit;
constinit kmv::KeyVariable kDAMediaContentKey;
