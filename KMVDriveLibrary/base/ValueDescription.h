// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <cstddef>
#include <string>

namespace kmv {

/// `Value::description` for untrusted values: truncated to `most` bytes and "…"; the cost is bounded
/// likewise.
std::string clippedDescription(const Value& value, std::size_t most);

}  // namespace kmv
