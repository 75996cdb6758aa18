// SPDX-License-Identifier: MIT
#include "kmvdrive/EventLoop.h"

#include <KMVDriveLibrary/Queue.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <limits>
#include <system_error>

namespace kmv::tool {
namespace {

/// With what Screen takes to give the terminal back, no more than a second.
constexpr std::chrono::milliseconds kPatienceWithCleanEnd{700};

std::atomic<int> signalledPipe{-1};
std::atomic<int> stopSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler reads it");

void wakeLoop(int signal) {
  const int savedErrno = errno;
  stopSignal.store(signal);
  const int pipe = signalledPipe.load();
  if (pipe >= 0) (void)!write(pipe, "", 1);
  errno = savedErrno;
}

sigset_t stopRequests() {
  sigset_t requests;
  sigemptyset(&requests);
  for (const int signal : {SIGINT, SIGTERM}) sigaddset(&requests, signal);
  return requests;
}

using Deadline = std::optional<EventLoop::Clock::time_point>;

bool hasPassed(const Deadline& deadline) {
  return deadline && EventLoop::Clock::now() >= *deadline;
}

/// The queue is looked at so often when no descriptor is left that would tell of its tasks.
constexpr std::chrono::milliseconds kLookWithoutDescriptor{100};

/// Milliseconds for poll, rounded up so that the deadline has passed afterwards; -1 for no limit.
int pollTimeout(Deadline deadline, bool isDeaf) {
  if (isDeaf) {
    const auto look = EventLoop::Clock::now() + kLookWithoutDescriptor;
    deadline = std::min(deadline.value_or(look), look);
  }
  if (!deadline) return -1;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(*deadline - EventLoop::Clock::now()).count();
  return static_cast<int>(std::clamp<long long>(left, 0, std::numeric_limits<int>::max()));
}

/// What the output is polled for: that its reader has gone. An error shows without being asked for, but macOS
/// watches only what is asked for. On a terminal that question would be answered by every key.
short eventsOfOutput(int output) {
  struct stat status {};
  const bool hasReader =
      fstat(output, &status) == 0 && (S_ISFIFO(status.st_mode) || S_ISSOCK(status.st_mode));
  return hasReader ? POLLHUP : 0;
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
  // Blocked here before there are handlers: only the watchdog, which waits for nobody, is to run them.
  const sigset_t requests = stopRequests();
  pthread_sigmask(SIG_BLOCK, &requests, &signalsBefore_);
  handleSignal(SIGINT, wakeLoop, static_cast<int>(SA_RESETHAND));
  handleSignal(SIGTERM, wakeLoop, static_cast<int>(SA_RESETHAND));
  watchdog_ = std::thread([this] { watch(); });
}

void StopSignals::watch() {
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, nullptr);
  const sigset_t requests = stopRequests();
  pthread_sigmask(SIG_UNBLOCK, &requests, nullptr);
  pollfd end{readEnd_, POLLIN, 0};
  while (poll(&end, 1, -1) < 0) {  // the handler interrupts it
  }
  const auto cleanEnd = cleanEnd_.get_future();
  if (cleanEnd.wait_for(kPatienceWithCleanEnd) == std::future_status::timeout) raise(stopSignal.load());
}

StopSignals::~StopSignals() {
  cleanEnd_.set_value();
  wakeLoop(0);
  watchdog_.join();
  handleSignal(SIGINT, SIG_DFL, 0);
  handleSignal(SIGTERM, SIG_DFL, 0);
  signalledPipe.store(-1);
  close(readEnd_);
  close(writeEnd_);
  pthread_sigmask(SIG_SETMASK, &signalsBefore_, nullptr);
}

Wake EventLoop::wait(std::optional<Clock::time_point> deadline) {
  for (;;) {
    const int queue = mainQueue().fileDescriptor();
    pollfd watched[] = {{stop_, POLLIN, 0}, {output_, eventsOfOutput(output_), 0}, {queue, POLLIN, 0}};
    const int ready = poll(watched, std::size(watched), pollTimeout(deadline, queue < 0));
    if (ready < 0 && errno != EINTR) throw std::system_error(errno, std::generic_category(), "cannot poll");
    if (ready > 0) {
      if (watched[0].revents != 0) return Wake::stopRequested;
      if (watched[1].revents != 0) return Wake::outputClosed;
    }
    if (ready > 0 || queue < 0) mainQueue().drain();
    if (hasPassed(deadline)) return Wake::deadline;
    if (ready != 0 || queue < 0) return Wake::worked;
  }
}

}  // namespace kmv::tool
