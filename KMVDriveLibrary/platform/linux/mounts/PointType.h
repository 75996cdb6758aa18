// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

/// False when a mount's root is a file that was mounted on a file, as containers do with /etc/hosts. True
/// when the answer is not to be had. REQUIRES: a block device behind the mount.
/// Never waits for a server: the kernel answers from its cache of names, or says that it cannot. `isLocal`: no
/// file system on the way can have a server behind it, so that the question may be asked of them too.
bool pointIsDirectory(const std::string& viewRoot, const MountEntry& mount, bool isLocal);

}  // namespace kmv
