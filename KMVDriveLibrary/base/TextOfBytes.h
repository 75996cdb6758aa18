// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <string_view>

namespace kmv {

/// True when the bytes are UTF-8.
bool isUTF8(std::string_view bytes);

/// `text` without white space and line ends at its beginning and end, by the platform's list of such
/// characters.
std::string_view withoutWhiteSpaceAtEnds(std::string_view text);

/// The number that `text` begins with, after white space and one sign; 0 without digits. What is beyond 64
/// bits becomes the largest, or smallest, number.
std::int64_t integerOfText(std::string_view text);

}  // namespace kmv
