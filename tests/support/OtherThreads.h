// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>
#include <system_error>

namespace kmv::test {

#if defined(__SANITIZE_THREAD__)
#  define KMV_TEST_WITH_THREAD_SANITIZER 1
#elif defined(__has_feature)
#  if __has_feature(thread_sanitizer)
#    define KMV_TEST_WITH_THREAD_SANITIZER 1
#  endif
#endif

/// True while this process has a thread beside its first one (the thread sanitizer's own does not count).
inline bool hasOtherThreads() {
#if defined(KMV_TEST_WITH_THREAD_SANITIZER)
  constexpr std::ptrdiff_t kOwn = 2;
#else
  constexpr std::ptrdiff_t kOwn = 1;
#endif
  std::error_code error;
  return std::distance(std::filesystem::directory_iterator("/proc/self/task", error),
                       std::filesystem::directory_iterator()) > kOwn;
}

}  // namespace kmv::test
