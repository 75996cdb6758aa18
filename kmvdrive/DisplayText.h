// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace kmv::tool {

/// `text` made safe and readable on a terminal that shows UTF-8: what would drive the terminal, or reorder or
/// break the line, becomes visible, and nothing is lost. Control characters and bytes that are no UTF-8 are
/// shown as `\x1b`, invisible characters of layout as `\u{202e}`, the backslash as `\\`.
std::string visibleText(std::string_view text);

/// The columns that `text`, as `visibleText` made it, takes on a terminal: two for East Asian wide characters
/// and emoji, none for marks that combine with the character before them, one for everything else.
/// Independent of the locale.
std::size_t displayWidth(std::string_view text);

/// The longest beginning of `text` that takes at most this many columns.
std::string_view clippedText(std::string_view text, std::size_t columns);

/// A number of bytes for people, in powers of 1000 as drives are sold: "512 B", "1.5 GB", "16 TB".
std::string sizeText(std::int64_t bytes);

}  // namespace kmv::tool
