// SPDX-License-Identifier: MIT
#pragma once

#include <pthread.h>
#include <signal.h>

#include <thread>
#include <utility>

namespace kmv {

/// A thread of the library: named, and with every signal but those of its own faults blocked from its first
/// instruction, so that the host's handlers never run on it. `name` has at most 15 characters. Throws
/// std::system_error when there is no thread to be had.
template <typename F>
std::thread startThread(const char* name, F run) {
  struct BlockedSignals {
    BlockedSignals() {
      sigset_t foreign;
      sigfillset(&foreign);
      for (const int fault : {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGTRAP, SIGSYS, SIGABRT})
        sigdelset(&foreign, fault);
      pthread_sigmask(SIG_BLOCK, &foreign, &before);
    }
    ~BlockedSignals() { pthread_sigmask(SIG_SETMASK, &before, nullptr); }
    sigset_t before;
  };
  const BlockedSignals blocked;
  std::thread thread([name, run = std::move(run)]() mutable {
    pthread_setname_np(pthread_self(), name);
    run();
  });
  return thread;
}

}  // namespace kmv
