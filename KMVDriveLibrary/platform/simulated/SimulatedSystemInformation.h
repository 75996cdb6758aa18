// SPDX-License-Identifier: MIT
#pragma once

#include "platform/SystemInformation.h"

namespace kmv::simulated {

class SimulatedSystemInformation final : public SystemInformation {
 public:
  OperatingSystemVersion operatingSystemVersion() override { return version; }

  OperatingSystemVersion version;
};

}  // namespace kmv::simulated
