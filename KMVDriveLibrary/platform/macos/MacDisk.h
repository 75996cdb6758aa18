// SPDX-License-Identifier: MIT
#pragma once

#include <DiskArbitration/DiskArbitration.h>
#include <KMVDriveLibrary/Disk.h>

#include <optional>

#include "platform/macos/CF.h"
#include "platform/macos/Values.h"

namespace kmv::macos {

/// A disk of the platform's. One that came with an event describes the moment at which that was queued; for
/// one that was looked up the daemon is asked each time.
class MacDisk final : public Disk {
 public:
  explicit MacDisk(CF<DADiskRef> disk) : disk_(std::move(disk)) {}

  std::optional<Dictionary> copyDescription() const override {
    const auto description = CF<CFDictionaryRef>::adopt(DADiskCopyDescription(disk_.get()));
    return description ? std::optional(dictionaryOf(description.get())) : std::nullopt;
  }
  const CF<DADiskRef>& reference() const { return disk_; }

 private:
  const CF<DADiskRef> disk_;
};

}  // namespace kmv::macos
