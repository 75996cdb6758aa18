// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/linux/mounts/MountInfoFile.h"
#include "platform/linux/mounts/MountTableWatcher.h"

namespace kmv {

class MountInfoProbe final : public MountChangeProbe {
 public:
  explicit MountInfoProbe(const LinuxOptions& options) : file_(options) {}
  bool hasChanged() override { return file_.hasChanged(); }

 private:
  MountInfoFile file_;
};

/// The watcher that works on every kernel: it reads the whole table again at each change.
class MountInfoWatcher final : public MountTableWatcher {
 public:
  /// `known` was told already, by another watcher.
  explicit MountInfoWatcher(const LinuxOptions& options, std::vector<MountEntry> known = {});

  std::optional<Changes> refresh(bool anew) override;
  std::unique_ptr<MountChangeProbe> makeProbe() const override;
  std::string name() const override { return "mountinfo"; }
  std::uint64_t missed() const override { return missed_; }

 private:
  std::optional<std::string> readUndisturbed();
  void restoreIds(std::vector<MountEntry>& entries) const;

  const LinuxOptions options_;

  MountInfoFile file_;
  std::uint64_t missed_ = 0;
  bool isUnread_ = true;  // not read yet, or it could not be when it had changed
  std::string text_;
  std::vector<MountEntry> entries_;
  // What another watcher told: ids by reused ids, and parents that are not in the table by the ids of who has them.
  std::unordered_map<std::uint64_t, std::uint64_t> uniqueIds_, parentsOutside_;
};

}  // namespace kmv
