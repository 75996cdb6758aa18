// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountTableWatcher.h"

#include "platform/linux/mounts/FanotifyWatcher.h"
#include "platform/linux/mounts/ListmountWatcher.h"
#include "platform/linux/mounts/MountInfoWatcher.h"

namespace kmv {
namespace {

/// The kernel's calls are about the machine that runs this process, and about its own mounts. Their reports need
/// /proc.
bool isThisProcess(const LinuxOptions& options) {
  return options.procRoot == LinuxOptions().procRoot && options.mountTableOf == LinuxOptions().mountTableOf &&
         MountInfoFile(options).descriptor() >= 0;
}

}  // namespace

std::unique_ptr<MountTableWatcher> makeMountTableWatcher(const LinuxOptions& options) {
  const auto kernel = isThisProcess(options) ? KernelMounts::open() : std::nullopt;
  if (!kernel) return std::make_unique<MountInfoWatcher>(options);
  if (auto watcher = FanotifyWatcher::make(options, *kernel)) return watcher;
  return std::make_unique<ListmountWatcher>(options, *kernel);
}

}  // namespace kmv
