// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "platform/linux/mounts/KnownMounts.h"
#include "platform/linux/mounts/MountTableWatcher.h"

namespace kmv {

/// What the watchers have in common that ask the kernel about single mounts. When a sandbox that came later
/// refuses the calls, they go on as readers of the whole table, and nothing is lost.
class StatmountWatcher : public MountTableWatcher {
 public:
  StatmountWatcher(const LinuxOptions& options, KernelMounts kernel) : options_(options), known_(kernel) {}

  std::optional<Changes> refresh(bool anew) final;
  std::string name() const final;
  std::string reason() const final { return instead_ ? instead_->reason() : MountTableWatcher::reason(); }
  std::uint64_t missed() const final { return known_.missed() + (instead_ ? instead_->missed() : 0); }

 protected:
  /// Takes the kernel's reports: what they name is compared with what is known. True when all must be compared,
  /// since a report names nothing, or some were lost.
  virtual bool takeReports() = 0;
  virtual std::string ownName() const = 0;

  KnownMounts& known() { return known_; }
  /// What was found so far is one difference.
  void endDifference();

 private:
  std::optional<Changes> readInstead(bool anew);

  const LinuxOptions options_;
  KnownMounts known_;
  Changes changes_;          // found by the present refresh
  bool isComplete_ = false;  // all that is mounted was compared, and no report since was lost
  std::unique_ptr<MountTableWatcher> instead_;
};

}  // namespace kmv
