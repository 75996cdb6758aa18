// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <map>
#include <string>

#include "platform/ChildProcess.h"

namespace kmv::simulated {

/// The programs that the library may run: functions, by path.
class SimulatedPrograms final : public ChildProcess {
 public:
  Result run(const Request& request) override;
  bool exists(const std::string& program) override { return programs.contains(program); }

  std::map<std::string, simulation::SimulatedProgram> programs;
};

}  // namespace kmv::simulated
