// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <string>

namespace kmv::tool {

/// Why the platform said no, from the object of "kDiskEjectionRejected": a sentence without its full stop,
/// with the number that it gave and the process that holds the volume, if one is known: "something on it is
/// in use (status 0xF8DA0002, process 4711)".
std::string refusalText(const Dictionary& rejection);

}  // namespace kmv::tool
