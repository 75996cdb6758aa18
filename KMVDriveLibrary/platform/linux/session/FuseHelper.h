// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace kmv {

/// Unmounts a FUSE mount of this process's own user with the set-user-ID helper program. Blocks. The status
/// of a command; `dissent::kDone` says only that the program reported success.
std::int32_t unmountOwnFuse(const std::string& mountPoint);

}  // namespace kmv
