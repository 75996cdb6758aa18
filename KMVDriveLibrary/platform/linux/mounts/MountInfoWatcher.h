// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
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

/// The watcher that works on every kernel: it reads the whole table again at each change. Only the
/// lines that differ are parsed and compared, so that what remains is the kernel's own work.
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
  MountDelta replace(std::string text);
  std::ptrdiff_t entryAt(std::size_t place) const;
  std::vector<MountEntry> takeOut(std::ptrdiff_t first, std::ptrdiff_t last);
  std::vector<MountEntry> parsed(std::size_t begin, std::size_t end, std::vector<std::size_t>& lines);
  void restoreIds(std::vector<MountEntry>& entries) const;

  const LinuxOptions options_;

  MountInfoFile file_;
  std::uint64_t missed_ = 0;
  bool isUnread_ = true;  // not read yet, or it could not be when it had changed
  std::string text_;
  std::vector<MountEntry> entries_;
  std::vector<std::size_t> lines_;           // where the entries' lines begin in the text
  bool hasDropped_ = false;                  // a line whose id occurred before
  std::unordered_set<std::uint64_t> taken_;  // the reused ids of the entries
  // What another watcher told: ids by reused ids, and parents that are not in the table by the ids of who has them.
  std::unordered_map<std::uint64_t, std::uint64_t> uniqueIds_, parentsOutside_;
};

}  // namespace kmv
