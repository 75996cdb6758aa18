// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <map>
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

  std::map<std::string, std::vector<IOService>> services;
  std::size_t questions = 0;
};

class SimulatedSystemInformation final : public SystemInformation {
 public:
  OperatingSystemVersion operatingSystemVersion() override { return version; }
  OperatingSystemVersion version;
};

}  // namespace kmv::simulated
