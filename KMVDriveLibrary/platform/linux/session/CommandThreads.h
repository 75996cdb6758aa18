// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <memory>

namespace kmv {

/// Runs commands to the platform, each on a thread of its own: one that waits for a sick medium or a dead
/// server is to delay no other. Threads: every member may be called from any thread.
class CommandThreads {
 public:
  CommandThreads();
  /// Waits for the commands that run.
  ~CommandThreads();

  /// Runs `command` on a new thread; false when the system has none left, and `command` will not run.
  bool start(std::function<void()> command);

 private:
  struct State;
  struct Job;
  static void body(void* job);
  std::shared_ptr<State> state_;
};

}  // namespace kmv
