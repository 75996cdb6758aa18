// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/NetServiceBrowser.h>

#include "platform/Clock.h"
#include "platform/IORegistry.h"
#include "platform/SystemInformation.h"
#include "platform/linux/LinuxOptions.h"
#include "platform/linux/PhysicalDisks.h"

namespace kmv {

/// The devices of /sys/class/block as services: a disk's children are its partitions. Immutable: any thread.
class LinuxIORegistry final : public IORegistry {
 public:
  explicit LinuxIORegistry(const LinuxOptions& options);
  std::vector<IOService> servicesMatchingBSDName(const std::string& name) override;
  std::optional<StorageDevice> wholeDisk(const std::string& name) override;
  std::vector<StorageDevice> physicalDisks(const std::string& name) override;
  std::unique_ptr<DriveStatisticsReader> makeStatisticsReader() override;

 private:
  LinuxOptions options_;
  std::string blockFolder_;
  PhysicalDisks below_;
};

class LinuxClock final : public Clock {
 public:
  Date now() override;
};

/// For a process that browses no network.
class NoServiceBrowser final : public NetServiceBrowser {
 public:
  void setIncludesPeerToPeer(bool) override {}
  void setDelegate(NetServiceBrowserDelegate*) override {}
  void searchForServicesOfType(std::string_view, std::string_view) override {}
};

/// The kernel's version. Immutable: any thread.
class LinuxSystemInformation final : public SystemInformation {
 public:
  OperatingSystemVersion operatingSystemVersion() override;
};

}  // namespace kmv
