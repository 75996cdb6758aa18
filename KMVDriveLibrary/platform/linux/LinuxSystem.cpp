// SPDX-License-Identifier: MIT
#include "platform/linux/LinuxSystem.h"

#include <sys/utsname.h>
#include <unistd.h>

#include <cstdio>

#include "platform/posix/Spawn.h"

namespace kmv {

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
  return spawnAndWait(placed, plainEnvironment());
}

bool LinuxChildProcess::exists(const std::string& program) {
  return ::access((root_ + program).c_str(), F_OK) == 0;
}

}  // namespace kmv
