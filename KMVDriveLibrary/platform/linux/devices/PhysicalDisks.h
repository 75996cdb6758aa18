// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/StorageDevices.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/devices/BlockDevices.h"
#include "platform/linux/mounts/MountTable.h"

namespace kmv {

/// A file system over several devices.
struct SpanningSystem {
  std::string id;
  std::vector<std::string> devices;
};

/// Follows sysfs down from a block device to the disks that stand on nothing else. Opens no device and
/// touches no volume. Failure: throws `NotReadable`, as `BlockDevices` does. Any thread.
class PhysicalDisks {
 public:
  PhysicalDisks(const LinuxOptions& options, std::shared_ptr<MountTable> mounts);

  std::optional<StorageDevice> wholeDiskOf(const std::string& name) const;

  /// Ascending by name. A cycle in the stack of devices is cut where it closes.
  std::vector<StorageDevice> below(const std::string& name) const;

  /// The device's folder below /sys/devices, and that of its whole disk; empty when there is none.
  std::string folderOf(const std::string& name) const;
  std::string wholeFolderOf(const std::string& name) const;
  /// The file system on the device, when it is one that says which devices it has.
  std::optional<SpanningSystem> systemOver(const std::string& name) const;

 private:
  StorageDevice describe(const std::string& folder) const;
  std::vector<std::string> membersBeside(const std::string& name) const;
  std::vector<std::string> standsOn(const std::string& folder) const;
  std::vector<std::string> devicesHoldingFile(const std::string& path) const;

  LinuxOptions options_;
  std::shared_ptr<MountTable> mounts_;
  BlockDevices devices_;
};

}  // namespace kmv
