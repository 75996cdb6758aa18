// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedPrograms.h"

namespace kmv::simulated {

ChildProcess::Result SimulatedPrograms::run(const Request& request) {
  const auto program = programs.find(request.program);
  if (program == programs.end()) return {false, request.program + ": No such file or directory", {}, {}};
  const simulation::SimulatedRun run = program->second(request.arguments);
  return {true, {}, run.output + (request.collectsErrors ? run.errors : std::string()), run.exitStatus};
}

}  // namespace kmv::simulated
