// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kmv {

// Small reads of /proc, /sys and udev's database. None of them may be given a path on a volume.

/// Everything from the descriptor's start to its end; none on a read error.
std::optional<std::string> readWhole(int fd);

/// The whole file at `path`; none when it cannot be opened or read.
std::optional<std::string> readFile(const std::string& path);

/// The file's text without blanks and line ends around it; empty when there is none.
std::string readAttribute(const std::string& path);

/// The file's text as a decimal number; 0 when it is none.
std::uint64_t readNumber(const std::string& path);

/// The target of a symbolic link; empty when there is none.
std::string readLink(const std::string& path);

/// `path` joined with the relative link target `target`, "." and ".." resolved in the text only.
std::string joinLink(std::string_view folder, std::string_view target);

/// The names in a folder, sorted, without "." and "..".
std::vector<std::string> listFolder(const std::string& path);

}  // namespace kmv
