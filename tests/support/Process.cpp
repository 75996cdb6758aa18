// SPDX-License-Identifier: MIT
#include "support/Process.h"

#include <spawn.h>

extern char** environ;

namespace kmv::test {
namespace {

std::vector<char*> pointersTo(Process::Words& words) {
  std::vector<char*> pointers;
  for (std::string& word : words) pointers.push_back(word.data());
  pointers.push_back(nullptr);
  return pointers;
}

/// A pipe: its reading end goes to `reader`, its writing end is returned.
int openPipe(int& reader) {
  int ends[2];
  if (pipe2(ends, O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe2");
  reader = ends[0];
  return ends[1];
}

}  // namespace

Process::Process(Words words, const Words& environment, Errors errors) {
  const std::string program = words[0];
  const int out = openPipe(output_.descriptor);
  const int err = errors == Errors::kept ? openPipe(errors_.descriptor) : -1;
  const int error = spawn(std::move(words), environment, {out, err});
  ::close(out);
  if (err >= 0) ::close(err);
  if (error == 0) return;
  output_.close();
  errors_.close();
  throw std::system_error(error, std::generic_category(), "starting " + program);
}

/// The error number of the start; `standard` are its stdout and stderr, -1 for this process's own.
int Process::spawn(Words words, Words environment, const int (&standard)[2]) {
  for (char** variable = environ; *variable != nullptr; ++variable) environment.emplace_back(*variable);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  for (const int number : {STDOUT_FILENO, STDERR_FILENO}) {
    const int end = standard[number - STDOUT_FILENO];
    if (end >= 0) posix_spawn_file_actions_adddup2(&actions, end, number);
  }
  const int error = posix_spawnp(&id_, words[0].c_str(), &actions, nullptr, pointersTo(words).data(),
                                 pointersTo(environment).data());
  posix_spawn_file_actions_destroy(&actions);
  return error;
}

Process::~Process() {
  if (!status_) {
    ::kill(id_, SIGKILL);
    waitpid(id_, nullptr, 0);
  }
  output_.close();
  errors_.close();
}

void Process::Stream::close() {
  if (descriptor >= 0) ::close(std::exchange(descriptor, -1));
}

bool Process::Stream::readMore(std::chrono::milliseconds limit) {
  pollfd request{descriptor, POLLIN, 0};
  if (descriptor < 0 || poll(&request, 1, static_cast<int>(limit.count())) <= 0) return false;
  char bytes[4096];
  const ssize_t count = read(descriptor, bytes, sizeof bytes);
  if (count > 0) text.append(bytes, static_cast<std::size_t>(count));
  return count > 0;
}

std::string Process::Stream::readAll() {
  while (readMore(kPatience)) {
  }
  return std::exchange(text, {});
}

std::optional<std::string> Process::readLine(std::chrono::milliseconds limit) {
  std::string& text = output_.text;
  while (text.find('\n') == std::string::npos) {
    if (!output_.readMore(limit)) return std::nullopt;
  }
  const std::size_t end = text.find('\n');
  std::string line = text.substr(0, end);
  text.erase(0, end + 1);
  return line;
}

unsigned long long Process::caughtSignals() const {
  std::ifstream status("/proc/" + std::to_string(id_) + "/status");
  for (std::string word; status >> word;) {
    if (word == "SigCgt:" && status >> word) return std::stoull(word, nullptr, 16);
  }
  return 0;
}

bool Process::waitUntilItHandles(int number) const {
  return eventually([&] { return (caughtSignals() >> (number - 1) & 1U) != 0; });
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

Ran run(Process::Words words, const Process::Words& environment, Process::Errors errors) {
  Process process(std::move(words), environment, errors);
  std::string output = process.readAll(), complaints = process.readErrors();
  return {process.exitCode(), std::move(output), std::move(complaints)};
}

bool isInstalled(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::istringstream folders(path == nullptr ? "" : path);
  for (std::string folder; std::getline(folders, folder, ':');) {
    if (access((folder + "/" + program).c_str(), X_OK) == 0) return true;
  }
  return false;
}

}  // namespace kmv::test
