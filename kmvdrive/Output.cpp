// SPDX-License-Identifier: MIT
#include "kmvdrive/Output.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <system_error>

namespace kmv::tool {
namespace {

// A pipe that polls writable takes this many bytes without making the writer wait.
constexpr std::size_t kLargestPiece = PIPE_BUF;

}  // namespace

bool Output::write(std::string_view text) {
  while (!text.empty() && waitForRoom()) {
    const ssize_t written = ::write(output_, text.data(), std::min(text.size(), kLargestPiece));
    if (written >= 0) {
      text.remove_prefix(static_cast<std::size_t>(written));
    } else if (errno != EINTR && errno != EAGAIN) {
      endWithError(errno);
    }
  }
  return !ended_;
}

/// False when there is nothing to wait for any more.
bool Output::waitForRoom() {
  while (!ended_) {
    pollfd watched[] = {{output_, POLLOUT, 0}, {stop_, POLLIN, 0}};
    if (poll(watched, std::size(watched), -1) < 0) {
      if (errno != EINTR) endWithError(errno);
      continue;
    }
    if (watched[0].revents != 0) return true;  // room, or an error that the write will name
    if (watched[1].revents != 0) ended_ = true;
  }
  return false;
}

void Output::endWithError(int error) {
  ended_ = true;
  if (error != EPIPE) failure_ = std::generic_category().message(error);
}

}  // namespace kmv::tool
