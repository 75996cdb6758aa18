// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

/// How the mount table differs from the last time. A mount that moved is in both lists under the same id.
struct MountDelta {
  std::vector<MountEntry> detached;
  std::vector<MountEntry> attached;
  bool empty() const { return detached.empty() && attached.empty(); }
};

/// Watches the mount table of this process's namespace. What lies behind works on differences only, so a
/// kernel interface that names each mount and unmount by itself can take the place of a reader of the whole
/// table. Thread: one at a time.
class MountTableWatcher {
 public:
  virtual ~MountTableWatcher() = default;

  /// To be polled for `epollEvents`; -1 when the table cannot be watched.
  virtual int descriptor() const = 0;
  virtual std::uint32_t epollEvents() const = 0;

  /// What changed since the last call; everything is attached by the first. `reported` tells that the
  /// descriptor has just polled ready: some kernels tell that only once.
  virtual MountDelta refresh(bool reported) = 0;
};

/// The watcher that works everywhere: it reads /proc/self/mountinfo again at each change.
std::unique_ptr<MountTableWatcher> makeMountInfoWatcher(const std::string& procRoot);

/// The difference between two reads of the table, and the order of the newer one expressed in that of the
/// older: mounts that stayed keep their `order`, new ones get one that fits. On return `newer` holds the
/// whole new table. REQUIRES: `older` ascends by `order`; ids differ within each table.
MountDelta diffMountTables(const std::vector<MountEntry>& older, std::vector<MountEntry>& newer);

}  // namespace kmv
