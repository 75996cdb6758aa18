// SPDX-License-Identifier: MIT
#include "platform/posix/Spawn.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <system_error>

#include "platform/posix/FileDescriptor.h"
#include "platform/posix/Retry.h"
#include "platform/posix/SpawnHooks.h"

namespace kmv {
namespace {

/// The child inherits nothing of the host's: neither descriptors nor blocked or ignored signals.
class Setup {
 public:
  Setup(int output, bool collectsErrors) {
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    if (collectsErrors) posix_spawn_file_actions_adddup2(&actions, output, STDERR_FILENO);
    posix_spawnattr_init(&attributes);
    sigset_t none, defaults;
    sigemptyset(&none);
    sigfillset(&defaults);
    for (const int number : {SIGKILL, SIGSTOP}) sigdelset(&defaults, number);  // not every system takes them
    posix_spawnattr_setsigmask(&attributes, &none);
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
    closeForeignDescriptors(actions, attributes, /*inheritsErrors=*/!collectsErrors);
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

/// A descriptor above the standard three, which a host may have closed.
FileDescriptor aboveStandard(int descriptor) {
  const FileDescriptor original(descriptor);
  return FileDescriptor(::fcntl(descriptor, F_DUPFD_CLOEXEC, STDERR_FILENO + 1));
}

std::string drain(int descriptor) {
  std::string text;
  std::array<char, 4096> buffer;
  for (;;) {
    const ssize_t count = retryOnEINTR([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
    if (count <= 0) return text;
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

/// None when the exit status is lost because a host ignores SIGCHLD; 128 plus the signal's number when a
/// signal ended the child.
std::optional<int> waitFor(pid_t child) {
  int status = 0;
  if (retryOnEINTR([&] { return ::waitpid(child, &status, 0); }) < 0) return std::nullopt;
  return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
  std::vector<char*> pointers;
  pointers.reserve(texts.size() + 1);
  for (std::string& text : texts) pointers.push_back(text.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

ChildProcess::Result spawnAndWait(const ChildProcess::Request& request,
                                  const std::vector<std::string>& environment) {
  ChildProcess::Result result;
  const auto problem = [&](int error) {
    result.problem = request.program + ": " + std::generic_category().message(error);
    return result;
  };
  int ends[2];
  if (!makePipe(ends)) return problem(errno);
  const FileDescriptor reader = aboveStandard(ends[0]);
  FileDescriptor writer = aboveStandard(ends[1]);
  if (!reader || !writer) return problem(EMFILE);
  const Setup setup(writer.get(), request.collectsErrors);
  std::vector<std::string> words{request.program}, variables = environment;
  words.insert(words.end(), request.arguments.begin(), request.arguments.end());
  pid_t child = -1;
  const int error = ::posix_spawn(&child, request.program.c_str(), &setup.actions, &setup.attributes,
                                  pointersTo(words).data(), pointersTo(variables).data());
  if (error != 0) return problem(error);
  writer.reset();
  result.started = true;
  result.output = drain(reader.get());
  result.exitStatus = waitFor(child);
  return result;
}

std::vector<std::string> environmentOfThisProcess() {
  std::vector<std::string> variables;
  for (char** variable = processEnvironment(); variable != nullptr && *variable != nullptr; ++variable)
    variables.emplace_back(*variable);
  return variables;
}

}  // namespace kmv
