// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <cstdint>
#include <string>

namespace kmv::simulated {

/// The description of a disk with a device, unmounted, under the BSD name given. `number` makes the UUID its
/// own.
Dictionary describe(const testing::SimulatedDisk& disk, const std::string& bsdName, double appearanceTime,
                    std::uint64_t number);
/// The description of a path volume, mounted.
Dictionary describe(const testing::SimulatedPathVolume& volume);

void apply(const testing::DescriptionChanges& changes, Dictionary& description);

/// The keys in which the two differ, ascending.
ChangedKeys differingKeys(const Dictionary& a, const Dictionary& b);

/// The unit N of "diskN" and all its slices; none for any other name.
std::optional<std::int64_t> unitOfBSDName(const std::string& bsdName);

/// Where a volume of this name is mounted by default.
std::string defaultMountPoint(const std::string& volumeName);

URL mountURL(const std::string& path);

}  // namespace kmv::simulated
