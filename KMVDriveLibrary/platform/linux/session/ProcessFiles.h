// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

// Parsers of what /proc tells about a process. Names in these texts are chosen by other users: hostile input.

/// One line of /proc/PID/maps.
struct Mapping {
  DeviceNumber device;
  std::string_view path;  ///< into the line; line feeds are escaped in it, and nothing else. May be no path.
};

/// "7f00-7f10 r--p 00000000 fd:01 12    /path"; none without a device number.
std::optional<Mapping> parseMapping(std::string_view line);

/// `path` as `Mapping::path` has it.
std::string pathInMaps(std::string_view path);

/// The mount that a descriptor stands on, from the text of /proc/PID/fdinfo/FD; none before Linux 3.15.
std::optional<std::uint64_t> mountIdOfDescriptor(std::string_view text);

/// True when a thread is in uninterruptible sleep, from the text of /proc/PID/task/TID/stat. The thread's
/// name stands in brackets and may hold brackets itself.
bool isUninterruptible(std::string_view text);

}  // namespace kmv
