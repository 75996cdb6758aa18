// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

using UdevProperties = std::map<std::string, std::string, std::less<>>;

/// The properties of one record of udev's database, the text of a file in /run/udev/data.
UdevProperties parseUdevRecord(std::string_view text);

/// The value of `name`; empty when absent.
std::string_view property(const UdevProperties& properties, std::string_view name);

/// Replaces each "\xNN" by the byte it names: udev's form of what may hold any character.
std::string decodeUdevText(std::string_view text);

/// What the kernel or udevd tells about one device.
struct DeviceEvent {
  std::string action;  ///< "add", "remove", "change", ...
  std::string path;    ///< below the root of sysfs
  DeviceNumber number;
  std::uint64_t sequence = 0;  ///< the kernel's count of all device events; 0 when unknown
};

/// One netlink message of the kernel: "ACTION@DEVPATH", then properties, each ended by NUL. None for any
/// other form (udevd's goes through libudev), and for a message that is not about a block device.
std::optional<DeviceEvent> parseDeviceMessage(std::string_view message);

}  // namespace kmv
