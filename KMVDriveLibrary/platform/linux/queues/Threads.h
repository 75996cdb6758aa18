// SPDX-License-Identifier: MIT
#pragma once

#include <pthread.h>
#include <signal.h>

#include <string_view>
#include <thread>
#include <utility>

namespace kmv {

/// While it lives, the calling thread has every signal blocked but the synchronous ones, which a fault of its
/// own raises: a host's crash handler must see these. A new thread inherits the mask, so no signal can reach
/// it before it could block them itself.
class BlockedSignals {
 public:
  BlockedSignals();
  ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  BlockedSignals(const BlockedSignals&) = delete;
  BlockedSignals& operator=(const BlockedSignals&) = delete;

 private:
  sigset_t before_;
};

/// Stops the process with a message in a child of a process that had threads of the library: fork copies the
/// calling thread only, so whatever waits for another one would hang. `what` says what was tried. A process
/// that forked before the library's first thread (a daemon) is not affected.
void refuseInForkedChild(std::string_view what);

/// From now on children made by fork are recognised. To be called before each start of a thread.
void watchForFork();

/// A thread of the library: named, and with the host's signals blocked from its first instruction, so that
/// the host's handlers never run on it. `name` has at most 15 characters. Throws std::system_error when no
/// thread can be started.
template <typename F>
std::thread startThread(const char* name, F run) {
  watchForFork();
  const BlockedSignals blocked;
  return std::thread([name, run = std::move(run)]() mutable {
    pthread_setname_np(pthread_self(), name);
    run();
  });
}

/// The same, detached; false when the system has no thread left.
bool startDetachedThread(const char* name, void (*body)(void*), void* argument);

}  // namespace kmv
