// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/linux/mounts/MountInfoFile.h"
#include "platform/linux/mounts/MountTableWatcher.h"

namespace kmv {

/// The watcher that works on every kernel: it reads the whole table again at each change.
class MountInfoWatcher final : public MountTableWatcher {
 public:
  explicit MountInfoWatcher(const LinuxOptions& options) : file_(options) {}

  std::optional<MountDelta> refresh(bool anew) override;

 private:
  std::optional<std::string> readUndisturbed();

  MountInfoFile file_;
  bool isUnread_ = true;  // not read yet, or it could not be when it had changed
  std::string text_;
  std::vector<MountEntry> entries_;
};

}  // namespace kmv
