// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/UUID.h>
#include <KMVDriveLibrary/Value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace kmv::simulation {

/// Identifies a disk of the simulated machine; never reused.
enum class DiskId : std::uint64_t {};

/// Description entries to set; no value removes the entry.
using DescriptionChanges = std::map<std::string, std::optional<Value>>;

/// A disk with a device. A field without a value (none, or an empty text) makes no description entry.
struct SimulatedDisk {
  std::string name = {};                  ///< "DAVolumeName"
  std::string mountPoint = {};            ///< absolute path; empty: the disk appears unmounted
  std::string bsdName = {};               ///< "disk4s2"; empty: the next whole disk that is free
  std::optional<std::int64_t> unit = {};  ///< none: the number in `bsdName`
  std::string kind = "exfat";             ///< "DAVolumeKind"; empty: no file system, so no UUID either
  std::string type = "ExFAT";             ///< "DAVolumeType"
  std::optional<UUID> uuid = {};          ///< none: a UUID that is unique on this machine
  std::optional<std::int64_t> size = 64'000'000'000;  ///< "DAMediaSize", bytes
  std::optional<bool> internal = {};                  ///< "DADeviceInternal"
  std::optional<bool> ejectable = {};                 ///< "DAMediaEjectable"
  std::optional<bool> network = {};                   ///< "DAVolumeNetwork"
  std::optional<bool> mountable = true;               ///< "DAVolumeMountable"
  std::string content = {};                           ///< "DAMediaContent"
  std::string model = {};                             ///< "DADeviceModel"
  DescriptionChanges description = {};                ///< applied last: overrides or removes any entry
};

/// A volume without a device (network share, FUSE): no BSD entries, no UUID, no appearance time. It exists
/// while it is mounted.
struct SimulatedPathVolume {
  std::string mountPoint;                ///< absolute path; required
  std::string name = {};                 ///< "DAVolumeName"
  std::string kind = "smbfs";            ///< "DAVolumeKind"
  std::optional<bool> network = true;    ///< "DAVolumeNetwork"
  std::optional<bool> mountable = true;  ///< "DAVolumeMountable"
  DescriptionChanges description = {};   ///< applied last: overrides or removes any entry
};

}  // namespace kmv::simulation
