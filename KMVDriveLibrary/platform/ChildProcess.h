// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace kmv {

/// Runs programs. Every member may be called from any thread.
class ChildProcess {
 public:
  virtual ~ChildProcess() = default;

  struct Request {
    std::string program;  ///< an absolute path
    std::vector<std::string> arguments;
    bool collectsErrors =
        false;  ///< standard error goes where the output goes; else it is this process's own
  };
  struct Result {
    bool started = false;
    std::string problem;  ///< why it was not
    std::string output;
    std::optional<int>
        exitStatus;  ///< none when it was lost, as in a process that ignores its children's ends
  };

  /// Runs the program and reads its output while it does; returns at its end. Nothing of this process's
  /// descriptors, masked or ignored signals goes along.
  virtual Result run(const Request& request) = 0;

  /// True when the program is there.
  virtual bool exists(const std::string& program) = 0;
};

}  // namespace kmv
