// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

#include <optional>
#include <string>
#include <vector>

namespace kmv {

/// A disk as the platform's arbitration session hands it to a callback.
/// It carries the description taken when the event was queued, so reading it touches no device.
/// Owner: the session; a callback borrows it for the duration of its call.
class KMV_EXPORT Disk {
 public:
  virtual ~Disk() = default;
  /// The description; none when the platform cannot describe the disk any more.
  virtual std::optional<Dictionary> copyDescription() const = 0;
};

/// The description keys that changed, in the platform's order.
using ChangedKeys = std::vector<std::string>;

}  // namespace kmv
