// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/IORegistry.h"
#include "platform/linux/LinuxOptions.h"
#include "platform/linux/devices/PhysicalDisks.h"
#include "platform/linux/mounts/MountTable.h"

namespace kmv {

/// The devices of /sys/class/block as services: a disk's children are its partitions. Immutable: any thread.
class LinuxIORegistry final : public IORegistry {
 public:
  LinuxIORegistry(const LinuxOptions& options, std::shared_ptr<MountTable> mounts);
  std::vector<IOService> servicesMatchingBSDName(const std::string& name) override;
  std::optional<StorageDevice> wholeDisk(const std::string& name) override;
  std::vector<StorageDevice> physicalDisks(const std::string& name) override;
  std::unique_ptr<DriveStatisticsReader> makeStatisticsReader() override;

 private:
  std::vector<IOService> servicesNamed(const std::string& name) const;

  LinuxOptions options_;
  std::shared_ptr<MountTable> mounts_;
  std::string blockFolder_;
  PhysicalDisks below_;
};

}  // namespace kmv
