// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kmv {

/// The integer that an attribute's value is: a decimal number, with a sign or without; white space and NULs
/// at its ends count for nothing. None for anything else, and for what 64 bits cannot hold.
std::optional<std::int64_t> numberInAttribute(std::string_view value);

}  // namespace kmv
