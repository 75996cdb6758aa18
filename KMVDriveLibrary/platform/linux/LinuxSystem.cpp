// SPDX-License-Identifier: MIT
#include "platform/linux/LinuxSystem.h"

#include <fcntl.h>
#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>
#include <vector>

#include "platform/linux/queues/WorkerPool.h"
#include "platform/posix/Spawn.h"
#include "platform/posix/SpawnHooks.h"

namespace kmv {

bool makePipe(int (&ends)[2]) {
  return ::pipe2(ends, O_CLOEXEC) == 0;
}

void closeForeignDescriptors(posix_spawn_file_actions_t& actions, posix_spawnattr_t&, bool) {
  posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
}

char** processEnvironment() {
  return environ;
}

namespace {

/// This process's environment, with a language in which every program says the same, in UTF-8.
std::vector<std::string> plainEnvironment() {
  std::vector<std::string> variables = environmentOfThisProcess();
  std::erase_if(variables, [](const std::string& variable) { return variable.starts_with("LC_ALL="); });
  variables.emplace_back("LC_ALL=C.UTF-8");
  return variables;
}

}  // namespace

OperatingSystemVersion LinuxSystemInformation::operatingSystemVersion() {
  OperatingSystemVersion version;
  utsname system{};
  if (::uname(&system) == 0)
    std::sscanf(system.release, "%d.%d.%d", &version.major, &version.minor, &version.patch);
  return version;
}

ChildProcess::Result LinuxChildProcess::run(const Request& request) {
  Request placed = request;
  placed.program = root_ + request.program;
  const VolumeWait waiting;  // a program may ask one, and itself be on one
  return spawnAndWait(placed, plainEnvironment());
}

bool LinuxChildProcess::exists(const std::string& program) {
  const VolumeWait waiting;
  return ::access((root_ + program).c_str(), F_OK) == 0;
}

}  // namespace kmv
