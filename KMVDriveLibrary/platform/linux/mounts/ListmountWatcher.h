// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "platform/linux/mounts/MountInfoFile.h"
#include "platform/linux/mounts/StatmountWatcher.h"

namespace kmv {

/// The watcher that any user may run where the kernel can list its mounts (Linux 6.13): at each change it compares
/// their ids, and asks for what is new.
class ListmountWatcher final : public StatmountWatcher {
 public:
  ListmountWatcher(const LinuxOptions& options, KernelMounts kernel);

  std::unique_ptr<MountChangeProbe> makeProbe() const override;

 private:
  bool takeReports() override;
  std::string ownName() const override { return "listmount"; }

  const LinuxOptions options_;
  MountInfoFile reports_;
};

}  // namespace kmv
