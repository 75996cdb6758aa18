// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/ListmountWatcher.h"

#include "platform/linux/mounts/MountInfoWatcher.h"

namespace kmv {

ListmountWatcher::ListmountWatcher(const LinuxOptions& options, KernelMounts kernel)
    : StatmountWatcher(options, kernel), options_(options), reports_(options) {}

std::unique_ptr<MountChangeProbe> ListmountWatcher::makeProbe() const {
  return std::make_unique<MountInfoProbe>(options_);
}

bool ListmountWatcher::takeReports() {
  if (!reports_.hasChanged()) return false;
  known().compareAfterReport();
  endDifference();
  return false;
}

}  // namespace kmv
