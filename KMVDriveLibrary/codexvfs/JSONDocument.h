// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <optional>
#include <string_view>

namespace kmv {

/// The array or object that a JSON document holds, read as the platform reads it: UTF-8, UTF-16 or UTF-32,
/// with a byte order mark or without; a trailing comma is accepted; of duplicate keys the last one wins; null
/// is an object that prints as "<null>". None for anything else, a single value, and nesting deeper than 512.
std::optional<Value> valueOfJSON(std::string_view bytes);

}  // namespace kmv
