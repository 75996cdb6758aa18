// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <cstddef>
#include <string>

namespace kmv {

/// `Value::description` for values from outside: cut, with "…" at its end, where it has more than `most`
/// bytes, and at no greater cost than that.
std::string clippedDescription(const Value& value, std::size_t most);

}  // namespace kmv
