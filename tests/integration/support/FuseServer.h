// SPDX-License-Identifier: MIT
#pragma once

#include "support/Process.h"
#include "support/Testing.h"

namespace kmv::integration {

/// A small FUSE file system of our own, served by a process of its own (codex_file_system.cpp).
class FuseServer {
 public:
  /// Mounts it at `point` as kind "fuse.kmvhello", no Codex volume, and waits until it shows in the mount
  /// table.
  /// Failure: throws std::runtime_error.
  explicit FuseServer(std::string point, const std::string& program = KMV_CODEX_FILE_SYSTEM);
  /// The same with whatever `words` starts, which mounts itself at `point`.
  FuseServer(std::string point, const test::Process::Words& words);
  /// Kills the server, stopped or not, and takes the mount away.
  ~FuseServer();
  FuseServer(const FuseServer&) = delete;
  FuseServer& operator=(const FuseServer&) = delete;

  /// Killed, it has no chance to unmount: a dead mount stays. Terminated, it unmounts.
  void end(int number = SIGKILL);
  /// It answers nothing until `resume`. Returns when it has stopped.
  void stop();
  void resume() { process_.signal(SIGCONT); }

 private:
  std::string point_;
  test::Process process_;
};

}  // namespace kmv::integration
