// SPDX-License-Identifier: MIT
#pragma once

#include "support/Sanitizers.h"
#include "support/Testing.h"

namespace kmv::test {

/// How many threads this process has beside its first one (the thread sanitizer's own does not count).
inline std::ptrdiff_t otherThreads() {
#if defined(KMV_THREAD_SANITIZER)
  constexpr std::ptrdiff_t kOwn = 2;
#else
  constexpr std::ptrdiff_t kOwn = 1;
#endif
  std::error_code error;
  return std::distance(std::filesystem::directory_iterator("/proc/self/task", error),
                       std::filesystem::directory_iterator()) -
         kOwn;
}

}  // namespace kmv::test
