// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountTableWatcher.h"

#include "platform/linux/mounts/MountInfoWatcher.h"

namespace kmv {

std::unique_ptr<MountTableWatcher> makeMountTableWatcher(const LinuxOptions& options) {
  return std::make_unique<MountInfoWatcher>(options);
}

}  // namespace kmv
