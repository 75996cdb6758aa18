// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <string>

#include "platform/FileSystem.h"

namespace kmv {

/// Visits the files below a folder, as `FileSystem::visitFiles` says.
///
/// Each folder is read through a descriptor, and each file costs one look by name and, when it is empty, one
/// for its attribute. A few threads look at files that come later while the caller is told of the earlier
/// ones, so that a server with a long way has several requests to answer at a time; the caller hears of them
/// in listing order all the same, and works along where it would wait. What lies ahead is bounded, in entries
/// and in open folders.
void walkFiles(const std::string& folder, const std::string& attribute,
               const std::function<void(const WalkedFile&)>& visit);

}  // namespace kmv
