// SPDX-License-Identifier: MIT
#include "platform/macos/MacSystem.h"

#include <crt_externs.h>
#include <fcntl.h>
#include <spawn.h>
#include <sys/sysctl.h>
#include <unistd.h>

#include <array>
#include <cstdio>

#include "platform/posix/Spawn.h"
#include "platform/posix/SpawnHooks.h"

namespace kmv {

bool makePipe(int (&ends)[2]) {
  if (::pipe(ends) != 0) return false;
  for (const int end : ends) ::fcntl(end, F_SETFD, FD_CLOEXEC);
  return true;
}

/// The flag closes everything that no action names, standard error included.
void closeForeignDescriptors(posix_spawn_file_actions_t& actions, posix_spawnattr_t& attributes,
                             bool inheritsErrors) {
  short flags = 0;
  posix_spawnattr_getflags(&attributes, &flags);
  posix_spawnattr_setflags(&attributes, static_cast<short>(flags | POSIX_SPAWN_CLOEXEC_DEFAULT));
  if (inheritsErrors) posix_spawn_file_actions_addinherit_np(&actions, STDERR_FILENO);
}

/// A framework has no `environ` of its own.
char** processEnvironment() {
  return *_NSGetEnviron();
}

namespace macos {

OperatingSystemVersion MacSystemInformation::operatingSystemVersion() {
  std::array<char, 64> text{};
  std::size_t size = text.size() - 1;  // the last one stays NUL
  OperatingSystemVersion version;
  if (::sysctlbyname("kern.osproductversion", text.data(), &size, nullptr, 0) == 0)
    std::sscanf(text.data(), "%d.%d.%d", &version.major, &version.minor, &version.patch);
  return version;
}

ChildProcess::Result MacChildProcess::run(const Request& request) {
  return spawnAndWait(request, environmentOfThisProcess());
}

bool MacChildProcess::exists(const std::string& program) {
  return ::access(program.c_str(), F_OK) == 0;
}

}  // namespace macos
}  // namespace kmv
