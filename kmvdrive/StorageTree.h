// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/StorageDevices.h>

#include <optional>
#include <string>
#include <vector>

#include "kmvdrive/DriveJSON.h"
#include "kmvdrive/DriveSummary.h"
#include "kmvdrive/Style.h"

namespace kmv::tool {

/// A partition, or a volume of a container: everything that bears one BSD name.
struct StoragePart {
  std::string name;
  std::vector<DictionarySnapshot> drives;  ///< what is mounted from it; or its description when nothing is
  bool isMounted = false;
};

struct StorageContainer {
  std::string name;
  std::vector<StoragePart> volumes;
};

struct StorageDisk {
  Value unit = 0;
  std::string name;  ///< of the whole disk; empty when it is not known
  std::string model;
  std::optional<std::int64_t> bytes;
  std::vector<StorageDevice> physicalDisks;
  std::vector<StoragePart> partitions;
  std::vector<StorageContainer> containers;
};

/// What the registry knows of disks now: mounted drives by the wrappers that they carry, and the disks that
/// are not mounted by their units. Drives without a device (network, FUSE) belong to no disk. In ascending
/// order of the units.
std::vector<StorageDisk> readStorageDisks(const KMVDiskArbiter& arbiter);

JSON jsonOfStorage(const std::vector<StorageDisk>& disks);

/// As a tree for people; what is not mounted is dimmed.
std::string textOfStorage(const std::vector<StorageDisk>& disks, const Style& style);

}  // namespace kmv::tool
