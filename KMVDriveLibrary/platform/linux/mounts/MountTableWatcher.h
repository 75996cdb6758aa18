// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/mounts/MountDelta.h"

namespace kmv {

/// Watches the mount table. What lies behind works on differences only, so a kernel interface that names each
/// mount and unmount by itself can take the place of a reader of the whole table. Thread: one at a time.
class MountTableWatcher {
 public:
  virtual ~MountTableWatcher() = default;

  /// What changed since the last call, every change that was complete before this one included; everything is
  /// attached by the first. None when the table cannot be read; the next call tells what this one did not.
  /// `anew` asks for what the kernel reports to nobody too: a renamed folder above a mount point.
  virtual std::optional<MountDelta> refresh(bool anew) = 0;
};

/// The best watcher for this machine. The place that chooses: another watcher needs nothing else.
std::unique_ptr<MountTableWatcher> makeMountTableWatcher(const LinuxOptions& options);

}  // namespace kmv
