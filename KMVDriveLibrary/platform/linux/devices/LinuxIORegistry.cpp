// SPDX-License-Identifier: MIT
#include "platform/linux/devices/LinuxIORegistry.h"

#include <utility>

#include "platform/linux/devices/LinuxDriveStatistics.h"
#include "platform/posix/SystemFiles.h"

namespace kmv {

LinuxIORegistry::LinuxIORegistry(const LinuxOptions& options, std::shared_ptr<MountTable> mounts)
    : options_(options),
      mounts_(std::move(mounts)),
      blockFolder_(options.sysRoot + "/class/block/"),
      below_(options, mounts_) {}

namespace {

/// Best effort, as the seam has no answer for "cannot be known now": nothing.
template <typename Read>
auto orNothing(const Read& read) -> decltype(read()) try {
  return read();
} catch (const NotReadable&) {
  return {};
}

}  // namespace

std::optional<StorageDevice> LinuxIORegistry::wholeDisk(const std::string& name) {
  return orNothing([&] { return below_.wholeDiskOf(name); });
}

std::vector<StorageDevice> LinuxIORegistry::physicalDisks(const std::string& name) {
  return orNothing([&] { return below_.below(name); });
}

std::vector<IOService> LinuxIORegistry::servicesMatchingBSDName(const std::string& name) {
  return orNothing([&] { return servicesNamed(name); });
}

std::vector<IOService> LinuxIORegistry::servicesNamed(const std::string& name) const {
  if (name.empty() || name.find('/') != std::string::npos) return {};
  const std::string folder = blockFolder_ + name;
  if (readAttribute(folder + "/dev").empty()) return {};
  IOService service{name, {}};
  for (const std::string& child : listFolder(folder)) {
    if (!readAttribute(folder + "/" + child + "/partition").empty()) service.childNames.push_back(child);
  }
  return {service};
}

std::unique_ptr<DriveStatisticsReader> LinuxIORegistry::makeStatisticsReader() {
  return std::make_unique<LinuxDriveStatistics>(options_, mounts_);
}

}  // namespace kmv
