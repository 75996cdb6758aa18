// SPDX-License-Identifier: MIT
#include "platform/linux/FuseHelper.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <optional>

#include "platform/linux/Commands.h"
#include "platform/linux/FileDescriptor.h"

namespace kmv {
namespace {

// PATH may lead a privileged host anywhere.
constexpr std::array<const char*, 5> kPrograms{"/usr/bin/fusermount3", "/bin/fusermount3",
                                               "/usr/local/bin/fusermount3", "/run/wrappers/bin/fusermount3",
                                               "/usr/bin/fusermount"};

const char* findProgram() {
  for (const char* program : kPrograms) {
    if (::access(program, X_OK) == 0) return program;
  }
  return nullptr;
}

/// Nothing of the host's goes along: its descriptors, ignored signals and language.
class Setup {
 public:
  explicit Setup(int output) {
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    posix_spawn_file_actions_addclosefrom_np(&actions, STDERR_FILENO + 1);
    posix_spawnattr_init(&attributes);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (const int number : {SIGCHLD, SIGPIPE, SIGINT, SIGTERM, SIGHUP}) sigaddset(&defaults, number);
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  }
  ~Setup() {
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
  }
  Setup(const Setup&) = delete;
  Setup& operator=(const Setup&) = delete;

  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attributes;
};

std::string drain(int fd) {
  std::string text;
  std::array<char, 1024> buffer;
  for (;;) {
    const ssize_t count = ::read(fd, buffer.data(), buffer.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

/// The exit code; none when a host that ignores SIGCHLD lets it get lost.
std::optional<int> waitFor(pid_t child) {
  int status = 0;
  while (::waitpid(child, &status, 0) < 0) {
    if (errno != EINTR) return std::nullopt;
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
  int ends[2];
  if (::pipe2(ends, O_CLOEXEC) != 0) return dissent::kError;
  const FileDescriptor reader(ends[0]);
  FileDescriptor writer(ends[1]);
  const Setup setup(writer.get());
  std::string name = program, option = "-u", point = mountPoint, locale = "LC_ALL=C";
  const std::array<char*, 4> words{name.data(), option.data(), point.data(), nullptr};
  const std::array<char*, 2> environment{locale.data(), nullptr};
  pid_t child = -1;
  const int error =
      ::posix_spawn(&child, program, &setup.actions, &setup.attributes, words.data(), environment.data());
  if (error != 0) return dissent::kError;
  writer.reset();
  const std::string output = drain(reader.get());
  return waitFor(child) == 0 ? dissent::kDone : statusOfOutput(output);
}

}  // namespace kmv
