// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What lies below a drive's BSD name, beyond what its description tells. Answers come from the platform's
// records of its devices: no device is opened and no volume is asked. Any thread. A name that is not there,
// or no longer, gives nothing.

namespace kmv {

/// A block device that is no partition.
struct StorageDevice {
  std::string name;        ///< "sda"
  std::string model;       ///< as the maker wrote it; empty when it is not known
  std::int64_t bytes = 0;  ///< its size
  friend bool operator==(const StorageDevice&, const StorageDevice&) = default;
};

/// The whole disk that the device of this BSD name is, or is a part of.
KMV_EXPORT std::optional<StorageDevice> wholeDiskOf(std::string_view bsdName);

/// The physical disks that hold the content of the device of this BSD name, in ascending order of their
/// names: through mappings, encryption, volume groups, RAIDs, image files, and file systems over several
/// devices. A device that stands on nothing else is its own.
KMV_EXPORT std::vector<StorageDevice> physicalDisksBelow(std::string_view bsdName);

}  // namespace kmv
