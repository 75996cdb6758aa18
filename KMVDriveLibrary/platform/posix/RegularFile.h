// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>

#include "platform/Files.h"

namespace kmv {

// The verbs of `Files`, on any POSIX system. Each waits for the volume.

/// See `Files::readRegularFile`.
FileBytes readRegularFileAt(const std::string& path, std::size_t mostBytes);

/// See `Files::openForReading`.
std::unique_ptr<FileStream> openRegularFile(const std::string& path);

/// See `Files::itemKind`.
ItemKind kindOfItem(const std::string& path);

/// See `Files::realPath`.
std::optional<std::string> resolvedPath(const std::string& path);

/// See `Files::currentFolder`.
std::optional<std::string> workingFolder();

/// Hook of each system's folder: drops what the kernel has cached of the open file, or keeps it from caching.
/// Best effort.
void dropCache(int file);

}  // namespace kmv
