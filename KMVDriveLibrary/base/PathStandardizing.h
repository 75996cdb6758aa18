// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <string_view>

namespace kmv {

class Files;

/// `path` standardised as `URLByStandardizingPath` says, without a trailing slash ("/" stays). A relative
/// path comes back unchanged. Asks `files` only about a path with a ".." component or an alias prefix.
std::string standardizedPath(std::string_view path, Files& files);

}  // namespace kmv
