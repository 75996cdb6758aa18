// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string>

namespace kmv {

/// A byte count as the platform writes the size of a file, in English: "Zero KB", "1 byte", "999 bytes",
/// "2 KB", "12.3 MB", "1.23 GB". Units of 1000; no decimals for KB, at most one for MB, at most two above.
std::string byteCountText(std::int64_t bytes);

}  // namespace kmv
