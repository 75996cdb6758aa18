// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountTableWatcher.h"

#include <string>
#include <system_error>
#include <utility>

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

std::string refusal(const std::string& way, int error) {
  return way + ": " + std::generic_category().message(error);
}

std::unique_ptr<MountTableWatcher> because(std::string reason, std::unique_ptr<MountTableWatcher> watcher) {
  watcher->setReason(std::move(reason));
  return watcher;
}

}  // namespace

std::unique_ptr<MountTableWatcher> makeMountTableWatcher(const LinuxOptions& options) {
  if (!isThisProcess(options))
    return because("the kernel's calls do not tell of this table",
                   std::make_unique<MountInfoWatcher>(options));
  int error = 0;
  const auto kernel = KernelMounts::open(&error);
  if (!kernel) return because(refusal("listmount", error), std::make_unique<MountInfoWatcher>(options));
  if (auto watcher = FanotifyWatcher::make(options, *kernel, &error)) return watcher;
  return because(refusal("fanotify", error), std::make_unique<ListmountWatcher>(options, *kernel));
}

}  // namespace kmv
