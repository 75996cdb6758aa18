// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/URL.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unordered_map>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/MountTableWatcher.h"
#include "platform/linux/MountTree.h"

namespace kmv {

/// Which volume holds a path: one statx for the mount's id, then a look-up in a kept mount table.
///
/// The kernel gives mount ids again, so an id counts only when the table did not change between the last look
/// at it and the answer; asking whether it did is a poll of its descriptor. The table is read again only
/// after a change. Threads: any. The path is asked outside the lock, so a look-up that waits for a dead
/// server delays no other.
class VolumeLookup {
 public:
  explicit VolumeLookup(const LinuxOptions& options);
  ~VolumeLookup();

  /// The root of the volume that holds the item at `path`; none when there is no such item.
  std::optional<URL> volumeHolding(const std::string& path);

 private:
  enum class Table { unchanged, changed };
  Table followTable();
  std::optional<URL> volumeOfMount(std::uint64_t mountId);

  std::mutex mutex_;
  std::unique_ptr<MountTableWatcher> watcher_;
  MountTree tree_;
  std::unordered_map<std::uint64_t, URL> roots_;  // by mount id; emptied by every change
  bool isRead_ = false;
};

}  // namespace kmv
