// SPDX-License-Identifier: MIT
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <initializer_list>
#include <optional>
#include <string>
#include <thread>
#include <vector>

extern char** environ;

/// The real program in a process of its own, with its output and errors at the ends of two pipes. Killed at
/// the end of its life if it still runs.
class ChildProgram {
 public:
  explicit ChildProgram(std::initializer_list<std::string> arguments) {
    std::vector<std::string> words{KMVDRIVE_PROGRAM};
    words.insert(words.end(), arguments);
    std::vector<char*> pointers;
    for (std::string& word : words) pointers.push_back(word.data());
    pointers.push_back(nullptr);

    int out[2], err[2];
    EXPECT_EQ(pipe2(out, O_CLOEXEC), 0);
    EXPECT_EQ(pipe2(err, O_CLOEXEC), 0);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, err[1], STDERR_FILENO);
    EXPECT_EQ(posix_spawn(&pid_, KMVDRIVE_PROGRAM, &actions, nullptr, pointers.data(), environ), 0);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    close(err[1]);
    output_ = out[0];
    errors_ = err[0];
  }
  ~ChildProgram() {
    if (!status_) {
      ::kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    closeOutput();
    close(errors_);
  }
  ChildProgram(const ChildProgram&) = delete;
  ChildProgram& operator=(const ChildProgram&) = delete;

  /// The next line of output without its line feed; none when the output ends first.
  std::optional<std::string> readLine() {
    std::string line;
    char c = 0;
    while (read(output_, &c, 1) == 1) {
      if (c == '\n') return line;
      line += c;
    }
    return std::nullopt;
  }
  std::string readOutput() { return readAll(output_); }
  std::string readErrors() { return readAll(errors_); }
  void closeOutput() {
    if (output_ >= 0) close(output_);
    output_ = -1;
  }
  void signal(int number) { ::kill(pid_, number); }

  /// Waits until the program has its own handler for `number`: from then on it can be asked to end.
  bool waitUntilItHandles(int number) {
    return waitFor([&] { return (caughtSignals() >> (number - 1) & 1U) != 0; });
  }

  /// Waits for the end: the exit code, or the negative number of the signal that killed it, or none when it
  /// does not end.
  std::optional<int> exitCode() {
    waitFor([&] {
      int status = 0;
      if (!status_ && waitpid(pid_, &status, WNOHANG) == pid_) status_ = status;
      return status_.has_value();
    });
    if (!status_) return std::nullopt;
    return WIFEXITED(*status_) ? WEXITSTATUS(*status_) : -WTERMSIG(*status_);
  }

 private:
  template <typename Condition>
  static bool waitFor(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (!condition()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
  }
  static std::string readAll(int fileDescriptor) {
    std::string all;
    char bytes[4096];
    for (ssize_t count = 0; (count = read(fileDescriptor, bytes, sizeof bytes)) > 0;) {
      all.append(bytes, static_cast<std::size_t>(count));
    }
    return all;
  }
  unsigned long long caughtSignals() const {
    std::ifstream status("/proc/" + std::to_string(pid_) + "/status");
    for (std::string word; status >> word;) {
      if (word == "SigCgt:" && status >> word) return std::stoull(word, nullptr, 16);
    }
    return 0;
  }

  pid_t pid_ = -1;
  int output_ = -1;
  int errors_ = -1;
  std::optional<int> status_;
};
