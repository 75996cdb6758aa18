// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/URL.h>
#include <KMVDriveLibrary/Value.h>
#include <KMVDriveLibrary/testing/SimulatedDisk.h>

#include <cstdint>
#include <optional>
#include <string>

namespace kmv::simulated {

/// The description of a disk with a device, under the BSD name given. `number` makes its UUID unique.
Dictionary describe(const simulation::SimulatedDisk& disk, const std::string& bsdName, double appearanceTime,
                    std::uint64_t number);
/// The description of a path volume, mounted.
Dictionary describe(const simulation::SimulatedPathVolume& volume);

void apply(const simulation::DescriptionChanges& changes, Dictionary& description);

/// The unit N of "diskN" and all its slices; none for any other name.
std::optional<std::int64_t> unitOfBSDName(const std::string& bsdName);

/// Where a volume of this name is mounted by default.
std::string defaultMountPoint(const std::string& volumeName);

URL mountURL(const std::string& path);

}  // namespace kmv::simulated
