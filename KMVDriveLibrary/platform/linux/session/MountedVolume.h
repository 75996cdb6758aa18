// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/Value.h>

#include <optional>
#include <utility>

#include "platform/linux/session/DiskModel.h"

namespace kmv {

/// A disk that a host asked for. It remembers its mount, by which a command finds the volume.
class MountedVolume final : public Disk {
 public:
  explicit MountedVolume(MountedDisk disk) : disk_(std::move(disk)) {}
  std::optional<Dictionary> copyDescription() const override { return disk_.description; }
  const MountedDisk& disk() const { return disk_; }

 private:
  MountedDisk disk_;
};

}  // namespace kmv
