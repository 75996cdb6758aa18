// SPDX-License-Identifier: MIT
#include "platform/linux/LinuxIORegistry.h"

#include <sys/utsname.h>

#include <chrono>
#include <cstdio>

#include "platform/linux/Files.h"
#include "platform/linux/LinuxDriveStatistics.h"

namespace kmv {

LinuxIORegistry::LinuxIORegistry(const LinuxOptions& options)
    : options_(options), blockFolder_(options.sysRoot + "/class/block/"), below_(options) {}

std::optional<StorageDevice> LinuxIORegistry::wholeDisk(const std::string& name) {
  return below_.wholeDiskOf(name);
}

std::vector<StorageDevice> LinuxIORegistry::physicalDisks(const std::string& name) {
  return below_.below(name);
}

std::vector<IOService> LinuxIORegistry::servicesMatchingBSDName(const std::string& name) {
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
  return std::make_unique<LinuxDriveStatistics>(options_);
}

Date LinuxClock::now() {
  constexpr double kReferenceDate = 978307200;  // 2001-01-01 in seconds since 1970
  const std::chrono::duration<double> sinceEpoch = std::chrono::system_clock::now().time_since_epoch();
  return {sinceEpoch.count() - kReferenceDate};
}

OperatingSystemVersion LinuxSystemInformation::operatingSystemVersion() {
  OperatingSystemVersion version;
  utsname system{};
  if (::uname(&system) == 0)
    std::sscanf(system.release, "%d.%d.%d", &version.major, &version.minor, &version.patch);
  return version;
}

}  // namespace kmv
