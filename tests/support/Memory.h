// SPDX-License-Identifier: MIT
#pragma once

#include <malloc.h>

#include "support/Testing.h"

namespace kmv::test {

/// What this process has allocated and not freed, in bytes. The sanitizers have allocators of their own, of
/// which this counts nothing.
inline std::size_t bytesAllocated() {
  const auto info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

/// More than what rests in the allocator's caches, far less than what a thousand leaks make.
inline constexpr std::size_t kBytesOfNoise = 32 * 1024;

}  // namespace kmv::test
