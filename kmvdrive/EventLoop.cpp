// SPDX-License-Identifier: MIT
#include "kmvdrive/EventLoop.h"

#include <KMVDriveLibrary/Queue.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
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

using Deadline = std::optional<EventLoop::Clock::time_point>;

bool hasPassed(const Deadline& deadline) {
  return deadline && EventLoop::Clock::now() >= *deadline;
}

/// Milliseconds for poll, rounded up so that the deadline has passed afterwards; -1 for no limit.
int pollTimeout(const Deadline& deadline) {
  if (!deadline) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - EventLoop::Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max()));
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

Wake EventLoop::wait(std::optional<Clock::time_point> deadline) {
  for (;;) {
    // The output is polled for nothing but the errors that always show: its reader has gone.
    pollfd watched[] = {{stop_, POLLIN, 0}, {output_, 0, 0}, {mainQueue().fileDescriptor(), POLLIN, 0}};
    const int ready = poll(watched, std::size(watched), pollTimeout(deadline));
    if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "cannot poll");
    if (ready > 0) {
      if (watched[0].revents != 0) return Wake::stopRequested;
      if (watched[1].revents != 0) return Wake::outputClosed;
      mainQueue().drain();
    }
    if (hasPassed(deadline)) return Wake::deadline;
    if (ready != 0) return Wake::worked;
  }
}

}  // namespace kmv::tool
