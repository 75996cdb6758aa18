// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace kmv {

/// The id of a mount, as the mount table has it, or the `errno` of the call; ENOSYS where the kernel is too
/// old to tell.
struct MountIdAnswer {
  int error = 0;
  std::uint64_t id = 0;
};

// Both ask for nothing but the mount, which the kernel knows by itself: another user's or a stopped server is
// not asked about the mount's root. Automounts stay as they are. A path is followed, and may wait for the
// servers that it leads through.

MountIdAnswer mountIdAtPath(const std::string& path);

/// Of the descriptor's open file. While it is open the kernel does not reuse its mount's id.
MountIdAnswer mountIdOfOpenFile(int descriptor);

}  // namespace kmv
