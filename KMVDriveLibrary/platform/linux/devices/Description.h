// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/UUID.h>
#include <KMVDriveLibrary/Value.h>

#include <optional>
#include <string_view>

#include "platform/linux/devices/BlockDevices.h"
#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

/// The description of a device, a mount, or both; at least one is given. Asks nobody.
Dictionary describeDisk(const BlockDevice* device, const MountEntry* mount, double appearanceTime);

/// The UUID of a file system: its own, or, for types whose ids are none, one made from the type and the id,
/// the same on every machine and in either letter case. None for an empty id and for the UUID of zeros, which
/// several tools leave behind.
std::optional<UUID> volumeUUID(std::string_view type, std::string_view id);

}  // namespace kmv
