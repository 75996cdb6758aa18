// SPDX-License-Identifier: MIT
#pragma once

#include "support/Testing.h"

namespace kmv::test {

inline constexpr std::chrono::seconds kPatience{20};  // for whatever must happen soon, on a slow machine too

/// Polls `condition` until it holds; false when it does not within `kPatience`.
template <typename Condition>
bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

/// A child process with its output at the end of a pipe. Killed at the end of its lifetime if it still runs.
class Process {
 public:
  using Words = std::vector<std::string>;
  /// Where its stderr goes: where this process's goes, or into a pipe of its own.
  enum class Errors { shown, kept };

  /// Starts `words[0]`, looked for in PATH, with `environment` added to this process's own.
  /// Failure: throws std::system_error.
  explicit Process(Words words, const Words& environment = {}, Errors errors = Errors::shown);
  ~Process();
  Process(const Process&) = delete;
  Process& operator=(const Process&) = delete;

  pid_t id() const { return id_; }
  void signal(int number) const { kill(id_, number); }

  /// The next line of output without its line feed; none when it does not come in time or the output ends.
  std::optional<std::string> readLine(std::chrono::milliseconds limit = kPatience);
  /// The output up to its end.
  std::string readAll() { return output_.readAll(); }
  /// The reader goes away.
  void closeOutput() { output_.close(); }
  /// stderr up to its end; empty unless it is kept.
  std::string readErrors() { return errors_.readAll(); }

  /// Waits until the program has a handler of its own for `number`: from then on it can be asked to end.
  bool waitUntilItHandles(int number) const;

  /// The exit code, or the negative number of the signal that killed it; none while it runs.
  std::optional<int> exitCodeNow();
  /// Waits for the end: `exitCodeNow` then, or none when it does not end.
  std::optional<int> exitCode();

 private:
  /// The reading end of a pipe, and what was read from it and not handed out yet.
  struct Stream {
    int descriptor = -1;
    std::string text = {};
    bool readMore(std::chrono::milliseconds limit);
    std::string readAll();
    void close();
  };
  int spawn(Words words, Words environment, const int (&standard)[2]);
  unsigned long long caughtSignals() const;

  pid_t id_ = -1;
  Stream output_;
  Stream errors_;
  std::optional<int> status_;
};

/// What a program that ran to its end wrote and returned. `errors` is empty unless they are kept.
struct Ran {
  std::optional<int> exitCode;
  std::string output;
  std::string errors;
};
Ran run(Process::Words words, const Process::Words& environment = {},
        Process::Errors errors = Process::Errors::shown);

/// True when a program of this name stands in PATH.
bool isInstalled(const std::string& program);

}  // namespace kmv::test
