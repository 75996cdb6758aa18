// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/IORegistry.h"
#include "platform/SystemInformation.h"

namespace kmv::simulated {

/// The services that the test put there, in the order in which it did.
class SimulatedIORegistry final : public IORegistry {
 public:
  std::vector<IOService> servicesMatchingBSDName(const std::string& name) override {
    ++questions;
    return services[name];
  }

  std::optional<StorageDevice> wholeDisk(const std::string& name) override {
    const auto known = disks.find(name);
    return known == disks.end() ? std::nullopt : std::optional(known->second.whole);
  }
  std::vector<StorageDevice> physicalDisks(const std::string& name) override {
    const auto known = disks.find(name);
    return known == disks.end() ? std::vector<StorageDevice>() : known->second.physical;
  }

  struct Disks {
    StorageDevice whole;
    std::vector<StorageDevice> physical;
  };
  std::map<std::string, Disks> disks;
  std::map<std::string, std::vector<IOService>> services;
  std::size_t questions = 0;
};

class SimulatedSystemInformation final : public SystemInformation {
 public:
  OperatingSystemVersion operatingSystemVersion() override { return version; }
  OperatingSystemVersion version;
};

}  // namespace kmv::simulated
