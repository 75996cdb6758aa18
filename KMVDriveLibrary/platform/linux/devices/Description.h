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

/// The UUID of a file system: its own, or, for types whose ids are not UUIDs, a name-based one derived from
/// the type and the id: deterministic on every machine and case-insensitive. None for an empty id and for the
/// nil UUID, which several tools leave behind.
std::optional<UUID> volumeUUID(std::string_view type, std::string_view id);

}  // namespace kmv
