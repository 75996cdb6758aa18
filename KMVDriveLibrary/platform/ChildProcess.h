// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kmv {

/// Runs programs.
/// Every member may be called from any thread.
class ChildProcess {
 public:
  virtual ~ChildProcess() = default;

  struct Request {
    std::string program;  ///< an absolute path
    std::vector<std::string> arguments;
    /// True: standard error goes where the output goes.
    /// False: it is this process's own.
    bool collectsErrors = false;
  };
  struct Result {
    bool started = false;
    std::string problem;  ///< why it was not started
    std::string output;
    /// None when it was lost, as in a process that ignores SIGCHLD.
    std::optional<int> exitStatus;
  };

  /// Runs the program, reads its output meanwhile, and returns at its end.
  /// The child inherits none of this process's descriptors, blocked signals or ignored signals.
  virtual Result run(const Request& request) = 0;

  /// True when the program exists.
  virtual bool exists(const std::string& program) = 0;
};

}  // namespace kmv
