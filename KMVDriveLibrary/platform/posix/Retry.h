// SPDX-License-Identifier: MIT
#pragma once

#include <cerrno>

namespace kmv {

/// Retries a system call on EINTR: it may run on a thread of the host's, which handles signals there.
template <typename Call>
auto retryOnEINTR(const Call& call) {
  auto result = call();
  while (result < 0 && errno == EINTR) result = call();
  return result;
}

}  // namespace kmv
