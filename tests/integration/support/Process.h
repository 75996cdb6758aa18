// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>

#include <chrono>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kmv::integration {

inline constexpr std::chrono::seconds kPatience{20};  // for whatever must happen soon, on a slow machine too

/// Polls `condition` until it holds; false when it does not within `kPatience`.
template <typename Condition>
bool eventually(Condition condition);

/// A program in a process of its own, its output at the end of a pipe. Killed at the end of its life if it
/// still runs.
class Process {
 public:
  using Words = std::vector<std::string>;

  /// Starts `words[0]`, looked for in PATH, with `environment` added to this process's own.
  /// Failure: throws std::system_error.
  explicit Process(Words words, const Words& environment = {});
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t id() const { return id_; }
  void signal(int number) const;

  /// The next line of output without its line feed; none when it does not come in time or the output ends.
  std::optional<std::string> readLine(std::chrono::milliseconds limit = kPatience);
  /// The output up to its end.
  std::string readAll();
  /// The exit code, or the negative number of the signal that killed it; none while it runs.
  std::optional<int> exitCodeNow();
  /// Waits for the end: `exitCodeNow` then, or none when it does not end.
  std::optional<int> exitCode();

 private:
  bool readMore(std::chrono::milliseconds limit);

  pid_t id_ = -1;
  int output_ = -1;
  std::string text_;  // read, not handed out yet
  std::optional<int> status_;
};

/// What a program that ran to its end wrote and returned.
struct Ran {
  std::optional<int> exitCode;
  std::string output;
};
Ran run(Process::Words words, const Process::Words& environment = {});

/// True when a program of this name stands in PATH.
bool isInstalled(const std::string& program);

void shortPause();

template <typename Condition>
bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    shortPause();
  }
  return true;
}

}  // namespace kmv::integration
