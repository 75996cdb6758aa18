// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace kmv {

/// Parses an attribute's value: a decimal number with an optional sign, trimmed of white space and NULs.
/// None for anything else, and for a number beyond 64 bits.
std::optional<std::int64_t> numberInAttribute(std::string_view value);

}  // namespace kmv
