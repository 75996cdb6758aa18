// SPDX-License-Identifier: MIT
#include "kmvdrive/StopSignals.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <system_error>

namespace kmv::tool {
namespace {

std::atomic<int> signalledPipe{-1};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler reads it");

void wakeLoop(int) {
  const int savedErrno = errno;
  const int pipe = signalledPipe.load();
  if (pipe >= 0) (void)!write(pipe, "", 1);
  errno = savedErrno;
}

}  // namespace

void handleSignal(int signal, void (*handler)(int), int flags) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = flags;
  sigemptyset(&action.sa_mask);
  sigaction(signal, &action, nullptr);
}

StopSignals::StopSignals() {
  int ends[2];
  if (pipe(ends) != 0) throw std::system_error(errno, std::generic_category(), "cannot make a pipe");
  readEnd_ = ends[0];
  writeEnd_ = ends[1];
  for (const int end : ends) {
    fcntl(end, F_SETFD, FD_CLOEXEC);
    fcntl(end, F_SETFL, O_NONBLOCK);
  }
  signalledPipe.store(writeEnd_);
  // Without SA_RESTART, so that a write that waits for a slow reader is interrupted.
  handleSignal(SIGINT, wakeLoop, static_cast<int>(SA_RESETHAND));
  handleSignal(SIGTERM, wakeLoop, static_cast<int>(SA_RESETHAND));
}

StopSignals::~StopSignals() {
  handleSignal(SIGINT, SIG_DFL, 0);
  handleSignal(SIGTERM, SIG_DFL, 0);
  signalledPipe.store(-1);
  close(readEnd_);
  close(writeEnd_);
}

}  // namespace kmv::tool
