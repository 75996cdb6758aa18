// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>

namespace kmv {

/// Runs commands to the platform, each on a thread of its own: one that waits for a sick medium or a dead
/// server is to delay no command to another volume. Those to the same volume run one after the other, and when
/// `kMostAtOnce` volumes keep theirs waiting, further ones queue. Threads: every member may be called from any
/// thread.
class CommandThreads {
 public:
  static constexpr int kMostAtOnce = 64;

  CommandThreads();
  /// Waits for the commands that run; drops those that wait.
  ~CommandThreads();

  /// False when the system has no thread for it, and `command` will not run.
  bool start(std::uint64_t volume, std::function<void()> command);

 private:
  struct State;
  static void body(void* thread);
  std::shared_ptr<State> state_;
};

}  // namespace kmv
