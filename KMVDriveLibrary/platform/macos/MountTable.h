// SPDX-License-Identifier: MIT
#pragma once

#include <sys/mount.h>

#include <vector>

namespace kmv::macos {

/// Every mount, in the order of the kernel's table. Waits for no volume. Empty when it cannot be read.
inline std::vector<struct statfs> mountTable() {
  constexpr std::size_t kRoomToSpare = 8;  // mounts may come between the two calls
  for (;;) {
    const int count = ::getfsstat(nullptr, 0, MNT_NOWAIT);
    if (count < 0) return {};
    std::vector<struct statfs> mounts(static_cast<std::size_t>(count) + kRoomToSpare);
    const int got =
        ::getfsstat(mounts.data(), static_cast<int>(mounts.size() * sizeof(struct statfs)), MNT_NOWAIT);
    if (got < 0) return {};
    if (static_cast<std::size_t>(got) == mounts.size()) continue;  // it filled up: some may be missing
    mounts.resize(static_cast<std::size_t>(got));
    return mounts;
  }
}

}  // namespace kmv::macos
