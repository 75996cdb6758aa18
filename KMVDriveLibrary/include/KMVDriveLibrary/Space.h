// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/URL.h>

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>

namespace kmv {

/// The room on a volume, in bytes, and whether it can be used.
struct Space {
  std::uint64_t total = 0;
  std::uint64_t free = 0;
  std::uint64_t available = 0;  ///< of that for a user without privileges
  bool isReadOnly = false;      ///< mounted so at present; a remount changes it without an announcement
  friend bool operator==(const Space&, const Space&) = default;
};

/// Asks the volume that holds `place`, a file URL, for its room, and calls `handler` once: with the answer, or without
/// one when the volume cannot be asked or has not answered within `limit`.
/// A volume that hangs keeps one thread, whoever asks how often: questions about one place that are in flight together
/// share one answer.
/// Thread: any; never blocks. `handler` runs on the main queue.
/// Ownership: `handler` is kept until it was called.
KMV_EXPORT void askForSpace(const URL& place, std::chrono::nanoseconds limit,
                            std::function<void(const std::optional<Space>& space)> handler);

}  // namespace kmv
