// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

/// False when a mount's root is a file that was mounted on a file, as containers do with /etc/hosts. True
/// when the answer is not to be had. REQUIRES: a block device behind the mount, and no file system on the way
/// that a server answers for.
bool pointIsDirectory(const std::string& viewRoot, const MountEntry& mount);

}  // namespace kmv
