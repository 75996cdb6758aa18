// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kmv {

// Splitting, trimming and case conversion of ASCII text; bytes above it pass through untouched.
// White space as the platform counts it, in UTF-8: TextOfBytes.h.

/// `text` trimmed of blanks, tabs and line ends.
std::string_view trimmed(std::string_view text);

/// ASCII letters in upper case; everything else as it is.
std::string upperCase(std::string_view text);

/// Removes and returns the part of `text` before the first `delimiter`, which is dropped; all without one.
std::string_view takeUntil(std::string_view& text, char delimiter);

/// Removes and returns the first line of `text`, without its line feed.
std::string_view takeLine(std::string_view& text);

/// Removes and returns the first word of `text`, after skipping blanks (' ' only); empty at the end.
std::string_view takeWord(std::string_view& text);

/// The parts of `text` between delimiters; one more than there are delimiters.
std::vector<std::string_view> split(std::string_view text, char delimiter);

/// `parts` with the delimiter between them.
std::string joined(const std::vector<std::string_view>& parts, char delimiter);

/// True for `folder` itself and every path below it; textual, both absolute and without trailing slashes.
KMV_EXPORT bool isAtOrBelow(std::string_view path, std::string_view folder);

/// The part after the last "/"; all of `path` when there is none.
std::string_view lastComponent(std::string_view path);

/// The part before the last "/"; empty when there is none.
std::string_view parentFolder(std::string_view path);

/// A decimal number without sign that fills `text`; none otherwise, and when it exceeds 64 bits.
std::optional<std::uint64_t> parseNumber(std::string_view text);

}  // namespace kmv
