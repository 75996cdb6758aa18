// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "kmvdrive/EventLoop.h"

namespace kmv::tool {

/// Starts the registry and waits until it has reported what exists.
///
/// The platform never says "that was all", so the end is concluded from three signs. Every volume that was
/// mounted at the start has been registered (each registration takes its entry off
/// `disksAlreadyMountedAtInit`); nothing was registered, mounted or not, for a short quiet period (the
/// unmounted disks are on no such list); and the arbiter queue and then the main queue have run dry, so
/// nothing is on its way. A volume that is slow to be identified is waited for, yet not beyond a limit.
class InitialReport {
 public:
  /// Begins to listen; the registry is not started yet, so that observers can be added before it is.
  InitialReport();
  ~InitialReport();
  InitialReport(const InitialReport&) = delete;
  InitialReport& operator=(const InitialReport&) = delete;

  /// Starts the registry and runs `loop` until its report has settled. Another result than none is why it
  /// ended before.
  std::optional<Wake> run(EventLoop& loop);

  /// Says on stderr when the limit came first: some volume that is mounted was not registered.
  void warnWhenIncomplete() const;

 private:
  class Listener;
  /// What has happened so far; touched on the main thread only.
  struct Progress {
    std::uint64_t registrations = 0;
    std::uint64_t fencesPassed = 0;
  };
  void sendFence();

  std::shared_ptr<Progress> progress_;
  std::shared_ptr<Listener> listener_;
  bool incomplete_ = false;
};

}  // namespace kmv::tool
