// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/IORegistry.h"

namespace kmv::macos {

/// A device is known by its medium, the entry that has the BSD name.
class MacIORegistry final : public IORegistry {
 public:
  std::vector<IOService> servicesMatchingBSDName(const std::string& name) override;
  /// The nearest whole medium, from the device's own upwards: for a volume of an APFS container that is the
  /// container's.
  std::optional<StorageDevice> wholeDisk(const std::string& name) override;
  /// Every whole medium with none above it. A disk image stands on itself.
  std::vector<StorageDevice> physicalDisks(const std::string& name) override;
  std::unique_ptr<DriveStatisticsReader> makeStatisticsReader() override;
};

}  // namespace kmv::macos
