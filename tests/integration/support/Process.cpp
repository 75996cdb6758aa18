// SPDX-License-Identifier: MIT
#include "integration/support/Process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <sstream>
#include <system_error>
#include <thread>

extern char** environ;

namespace kmv::integration {
namespace {

std::vector<char*> pointersTo(Process::Words& words) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

}  // namespace

Process::Process(Words words, const Words& environment) {
  Words variables;
  for (char** variable = environ; *variable != nullptr; ++variable) variables.emplace_back(*variable);
  variables.insert(variables.end(), environment.begin(), environment.end());

  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe2");
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, ends[1], STDOUT_FILENO);
  const int error = posix_spawnp(&id_, words[0].c_str(), &actions, nullptr, pointersTo(words).data(),
                                 pointersTo(variables).data());
  posix_spawn_file_actions_destroy(&actions);
  close(ends[1]);
  output_ = ends[0];
  if (error == 0) return;
  close(output_);
  throw std::system_error(error, std::generic_category(), "starting " + words[0]);
}

Process::~Process() {
  if (!status_) {
    ::kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
  }
  close(output_);
}

void Process::signal(int number) const {
  ::kill(id_, number);
}

bool Process::readMore(std::chrono::milliseconds limit) {
  pollfd request{output_, POLLIN, 0};
  if (poll(&request, 1, static_cast<int>(limit.count())) <= 0) return false;
  char bytes[4096];
  const ssize_t count = read(output_, bytes, sizeof bytes);
  if (count > 0) text_.append(bytes, static_cast<std::size_t>(count));
  return count > 0;
}

std::optional<std::string> Process::readLine(std::chrono::milliseconds limit) {
  while (text_.find('\n') == std::string::npos) {
    if (!readMore(limit)) return std::nullopt;
  }
  const std::size_t end = text_.find('\n');
  std::string line = text_.substr(0, end);
  text_.erase(0, end + 1);
  return line;
}

std::string Process::readAll() {
  while (readMore(kPatience)) {
  }
  return std::exchange(text_, {});
}

std::optional<int> Process::exitCodeNow() {
  int status = 0;
  if (!status_ && waitpid(id_, &status, WNOHANG) == id_) status_ = status;
  if (!status_) return std::nullopt;
  return WIFEXITED(*status_) ? WEXITSTATUS(*status_) : -WTERMSIG(*status_);
}

std::optional<int> Process::exitCode() {
  eventually([this] { return exitCodeNow().has_value(); });
  return exitCodeNow();
}

Ran run(Process::Words words, const Process::Words& environment) {
  Process process(std::move(words), environment);
  std::string output = process.readAll();
  return {process.exitCode(), std::move(output)};
}

bool isInstalled(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (access((folder + "/" + program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

void shortPause() {
  std::this_thread::sleep_for(std::chrono::milliseconds(2));
}

}  // namespace kmv::integration
