// SPDX-License-Identifier: MIT
#include "platform/linux/session/FuseHelper.h"

#include <unistd.h>

#include <array>

#include "platform/linux/session/Commands.h"
#include "platform/posix/Spawn.h"

namespace kmv {
namespace {

// Not searched in PATH, which may lead a privileged host to any program.
constexpr std::array<const char*, 5> kPrograms{"/usr/bin/fusermount3", "/bin/fusermount3",
                                               "/usr/local/bin/fusermount3", "/run/wrappers/bin/fusermount3",
                                               "/usr/bin/fusermount"};

const char* findProgram() {
  for (const char* program : kPrograms) {
    if (::access(program, X_OK) == 0) return program;
  }
  return nullptr;
}

/// What the program says in the C locale.
std::int32_t statusOfOutput(const std::string& output) {
  if (output.find("Device or resource busy") != std::string::npos) return dissent::kBusy;
  if (output.find("Operation not permitted") != std::string::npos) return dissent::kNotPrivileged;
  if (output.find("Permission denied") != std::string::npos) return dissent::kNotPermitted;
  return dissent::kError;
}

}  // namespace

std::int32_t unmountOwnFuse(const std::string& mountPoint) {
  const char* const program = findProgram();
  if (program == nullptr) return dissent::kNotPrivileged;
  const auto result = spawnAndWait({program, {"-u", mountPoint}, /*collectsErrors=*/true}, {"LC_ALL=C"});
  if (!result.started) return dissent::kError;
  return result.exitStatus == 0 ? dissent::kDone : statusOfOutput(result.output);
}

}  // namespace kmv
