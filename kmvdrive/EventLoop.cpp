// SPDX-License-Identifier: MIT
#include "kmvdrive/EventLoop.h"

#include <KMVDriveLibrary/Queue.h>
#include <poll.h>

#include <algorithm>
#include <cerrno>
#include <limits>
#include <system_error>

namespace kmv::tool {
namespace {

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
