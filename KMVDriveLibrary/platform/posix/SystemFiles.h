// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace kmv {

// Small reads of /proc, /sys and udev's database. None of them may be given a path on a volume.
// Failure: what is not there, or not for this process, is empty or none. All but `readWhole` and `readLink` throw
// `NotReadable` when descriptors or memory are exhausted: that says nothing about what is there.

/// Whether something is there cannot be known now: to be retried, and until then everything stays as it was known.
class NotReadable : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// True for errors of the process or the machine and not of the file: EMFILE, ENFILE, ENOMEM and the like.
bool isShortage(int error);

/// Everything from the descriptor's start to its end; none on a read error.
std::optional<std::string> readWhole(int fd);

/// The whole file at `path`; none when it cannot be opened or read.
std::optional<std::string> readFile(const std::string& path);

/// The file's text without blanks and line ends around it; empty when there is none.
std::string readAttribute(const std::string& path);

/// The same for an attribute that decides whether something is there: throws after any error but those that say that
/// it is gone (ENOENT, ENODEV, ENXIO) or is hidden from this process (EACCES, EPERM).
std::string requireAttribute(const std::string& path);

/// The file's text as a decimal number; 0 when it is none.
std::uint64_t readNumber(const std::string& path);

/// The target of a symbolic link; empty when there is none.
std::string readLink(const std::string& path);

/// `path` joined with the relative link target `target`, "." and ".." resolved in the text only.
std::string joinLink(std::string_view folder, std::string_view target);

/// The names in a folder, sorted, without "." and "..". Throws as `requireAttribute` does: a folder that cannot be
/// listed is not an empty one.
std::vector<std::string> listFolder(const std::string& path);

}  // namespace kmv
