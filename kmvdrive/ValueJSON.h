// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <nlohmann/json.hpp>
#include <string>

namespace kmv::tool {

/// Keeps members in insertion order, so that output can be compared as text.
using JSON = nlohmann::ordered_json;

/// Booleans, integers and reals as they are (NaN and infinity become null when printed), text, URLs and UUIDs
/// as their text, dates in ISO 8601 UTC, data in base 64, arrays and dictionaries as such, objects by their
/// description.
JSON jsonOf(const Value& value);

/// The number as an integer of 64 bits, with a sign or above the signed range; 0 for what is no number.
JSON jsonOfInteger(const Value& number);

/// The version of everything that the program prints as JSON: docs/json.md says what may change without a new one.
inline constexpr int kSchema = 1;

/// `document`, an object with "schema" as its first member, on one line, ended by a line feed. Always valid JSON and plain ASCII, so that no name can drive
/// a terminal: other characters are escaped, and bytes that are not valid UTF-8 become U+FFFD ("url" still
/// has them, percent-encoded).
std::string jsonLine(const JSON& document);

}  // namespace kmv::tool
