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
