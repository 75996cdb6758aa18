// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

namespace kmv {

/// `text` trimmed of white space and line ends, by the platform's list of such characters.
std::string_view withoutWhiteSpaceAtEnds(std::string_view text);

/// The number that `text` begins with, after white space and one sign; 0 without digits. Clamped to 64 bits.
std::int64_t integerOfText(std::string_view text);

}  // namespace kmv
