// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/Value.h>

#include <nlohmann/json.hpp>
#include <string>

#include "kmvdrive/CodexFeed.h"

namespace kmv::tool {

/// Keeps members in the order in which they were set, so that output can be compared as text.
using JSON = nlohmann::ordered_json;

/// Booleans, integers and reals as they are (a real that is no number becomes null when printed), text, URLs
/// and UUIDs as their text, dates in ISO 8601 UTC, data in base 64, arrays and dictionaries as such, objects
/// by their description.
JSON jsonOf(const Value& value);

/// A drive, or the description of a disk that is not mounted: its best-known facts under names of their own,
/// absent ones left out, and everything else under "description".
JSON jsonOfDrive(const Dictionary& drive);

/// "state", and "size" in bytes when it is known.
JSON jsonOfCodexVolume(const CodexStatus& status);

JSON jsonOfHiddenMount(const HiddenMount& mount);

/// `document` on one line, ended by a line feed. Always valid JSON and plain ASCII, so that no name can drive
/// a terminal: other characters are escaped, and bytes that are no UTF-8 become U+FFFD ("url" still tells
/// them).
std::string jsonLine(const JSON& document);

}  // namespace kmv::tool
