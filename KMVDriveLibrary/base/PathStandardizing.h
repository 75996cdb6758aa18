// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kmv {

class FileSystem;

/// `path` standardised as `URLByStandardizingPath` says, without a trailing slash ("/" stays). A relative
/// path comes back unchanged. Asks `fileSystem` only about a path with a ".." component or an alias prefix.
std::string standardizedPath(std::string_view path, FileSystem& fileSystem);

}  // namespace kmv
