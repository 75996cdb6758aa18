// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace kmv {

/// Takes a FUSE mount of this process's own user away with the program that holds the right to. Blocks. The
/// status of a command; `dissent::kDone` says only that the program reported success.
std::int32_t unmountOwnFuse(const std::string& mountPoint);

}  // namespace kmv
