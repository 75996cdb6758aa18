// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/TreeWalk.h"

namespace kmv {

/// Visits the files below a folder, as `TreeWalk::visitEachFile` says.
///
/// Each folder is read through a descriptor, and each file costs one look by name and, when it is empty, one
/// for its attribute. A few threads prefetch: they look at files that come later while the caller is told of
/// the earlier ones, so that a server with a high latency has several requests in flight. The caller hears of
/// files in listing order all the same, and works along where it would wait.
///
/// How many folders are listed ahead has an upper bound; a single folder is listed as a whole, and counts as
/// one that cannot be when that takes more than 256 MiB. Out of memory, it stops the process.
void walkFiles(const std::string& folder, const std::string& attribute, const VisitFile& visit);

}  // namespace kmv
