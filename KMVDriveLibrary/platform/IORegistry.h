// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/StorageDevices.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/DriveStatistics.h"

namespace kmv {

/// One service of the platform's registry of devices, as far as the library asks about it.
struct IOService {
  std::string bsdName;                  ///< its "BSD Name"; empty when it has none
  std::vector<std::string> childNames;  ///< registry names of its children, in the platform's order
};

/// The platform's registry of devices.
/// Every member may be called from any thread.
class IORegistry {
 public:
  virtual ~IORegistry() = default;

  /// The services that match a BSD name ("disk3", "sda1"), in the platform's order.
  /// Touches no device.
  virtual std::vector<IOService> servicesMatchingBSDName(const std::string& name) = 0;

  /// The whole disk of a BSD name, and the physical disks below it: see StorageDevices.h.
  virtual std::optional<StorageDevice> wholeDisk(const std::string& name) = 0;
  virtual std::vector<StorageDevice> physicalDisks(const std::string& name) = 0;

  virtual std::unique_ptr<DriveStatisticsReader> makeStatisticsReader() = 0;
};

}  // namespace kmv
