// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// The devices below a drive's BSD name.
// Answers come from the platform's records of its devices: no device is opened and no volume is asked.
// Thread: any.
// Failure: an unknown name gives none or an empty list.

namespace kmv {

/// A block device that is not a partition.
struct StorageDevice {
  std::string name;        ///< "sda"
  std::string model;       ///< as the maker wrote it; empty when unknown
  std::int64_t bytes = 0;  ///< its size
  friend bool operator==(const StorageDevice&, const StorageDevice&) = default;
};

/// The whole disk that the device of this BSD name is, or is a part of.
KMV_EXPORT std::optional<StorageDevice> wholeDiskOf(std::string_view bsdName);

/// The physical disks that hold the content of the device of this BSD name, in ascending order of their
/// names: through mappings, encryption, volume groups, RAIDs, image files, and file systems over several
/// devices.
/// A device that is not built on another one is its own physical disk.
KMV_EXPORT std::vector<StorageDevice> physicalDisksBelow(std::string_view bsdName);

}  // namespace kmv
