// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/mounts/MountDelta.h"

namespace kmv {

/// Tells one reader of the table whether there may be something new. Thread: one at a time; beside the watcher's.
class MountChangeProbe {
 public:
  virtual ~MountChangeProbe() = default;
  /// True after each change since the last call that was complete before this one; also without one. The first
  /// call says true. Cost: one poll.
  virtual bool hasChanged() = 0;
};

/// Watches the mount table. What lies behind works on differences only, so a kernel interface that names each
/// mount and unmount by itself can take the place of a reader of the whole table. Thread: one at a time.
class MountTableWatcher {
 public:
  using Changes = std::vector<MountDelta>;

  virtual ~MountTableWatcher() = default;

  /// What changed since the last call, oldest first, every change that was complete before this one included;
  /// everything is attached by the first. None when the table cannot be read; the next call tells what this one
  /// did not. `anew` asks for what the kernel reports to nobody too: a renamed folder above a mount point.
  virtual std::optional<Changes> refresh(bool anew) = 0;

  /// Becomes readable (EPOLLIN) with each change and stays so until `refresh`; -1 where the kernel only reports
  /// that the table changed, once to each open file of it.
  virtual int descriptor() const { return -1; }

  virtual std::unique_ptr<MountChangeProbe> makeProbe() const = 0;

  /// Which way this is, in a word, for people.
  virtual std::string name() const = 0;
  /// Why it is not a better one, for people; empty for the best.
  virtual std::string reason() const { return reason_; }
  void setReason(std::string reason) { reason_ = std::move(reason); }
  /// Mounts that came and went unseen, as far as that is known: where the kernel's reports name nothing, the reports
  /// that nothing explains.
  virtual std::uint64_t missed() const { return 0; }

 private:
  std::string reason_;
};

/// The best watcher for this machine. The place that chooses: another watcher needs nothing else.
std::unique_ptr<MountTableWatcher> makeMountTableWatcher(const LinuxOptions& options);

}  // namespace kmv
