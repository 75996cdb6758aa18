// SPDX-License-Identifier: MIT
#pragma once

#include <sys/epoll.h>

#include <chrono>
#include <cstdint>
#include <optional>

#include "platform/posix/FileDescriptor.h"

namespace kmv {

/// Adds a descriptor to those that an epoll sleeps on; nothing when there is none, or it is there already.
inline void watch(const FileDescriptor& poll, int descriptor, std::uint32_t events) {
  if (descriptor < 0) return;
  epoll_event request{};
  request.events = events;
  request.data.fd = descriptor;
  ::epoll_ctl(poll.get(), EPOLL_CTL_ADD, descriptor, &request);
}

/// Milliseconds until `deadline`, rounded up so that waiting them is enough; -1 for no deadline.
inline int millisecondsUntil(std::optional<std::chrono::steady_clock::time_point> deadline) {
  if (!deadline) return -1;
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(*deadline - std::chrono::steady_clock::now()).count();
  return left > 0 ? static_cast<int>(left) : 0;
}

}  // namespace kmv
