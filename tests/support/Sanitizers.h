// SPDX-License-Identifier: MIT
#pragma once

// KMV_THREAD_SANITIZER: this program was built with the thread sanitizer, which has a thread of its own that
// wakes up ten times a second. A process with two threads cannot enter a new user namespace.
#if defined(__SANITIZE_THREAD__)
#  define KMV_THREAD_SANITIZER 1
#elif defined(__has_feature)
#  if __has_feature(thread_sanitizer)
#    define KMV_THREAD_SANITIZER 1
#  endif
#endif

// KMV_LEAK_SANITIZER: it, and its options too, are read from /proc, so no program may lack that.
#if defined(__SANITIZE_ADDRESS__)
#  define KMV_LEAK_SANITIZER 1
#elif defined(__has_feature)
#  if __has_feature(address_sanitizer)
#    define KMV_LEAK_SANITIZER 1
#  endif
#endif

namespace kmv::test {

/// How many steps a long run on the simulated machine takes. All of it is one thread's, so that the thread
/// sanitizer, which makes it ten times slower, finds nothing in it.
constexpr int stepsOnOneThread(int steps) {
#if defined(KMV_THREAD_SANITIZER)
  return steps / 10;
#else
  return steps;
#endif
}

}  // namespace kmv::test
