// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/DiskCallbacks.h>
#include <KMVDriveLibrary/Value.h>

#include <optional>
#include <utility>

#include "platform/linux/session/DiskModel.h"

namespace kmv {

/// A disk as it was when its event was queued.
class DescribedDisk final : public Disk {
 public:
  explicit DescribedDisk(Dictionary description) : description_(std::move(description)) {}
  std::optional<Dictionary> copyDescription() const override { return description_; }

 private:
  Dictionary description_;
};

inline void tell(DiskEvent& event, const DiskCallbacks& callbacks, void* context) {
  DescribedDisk disk(std::move(event.description));
  switch (event.kind) {
    case DiskEvent::Kind::appeared:
      if (callbacks.appeared != nullptr) callbacks.appeared(&disk, context);
      return;
    case DiskEvent::Kind::disappeared:
      if (callbacks.disappeared != nullptr) callbacks.disappeared(&disk, context);
      return;
    case DiskEvent::Kind::changed:
      if (callbacks.descriptionChanged != nullptr)
        callbacks.descriptionChanged(&disk, &event.changedKeys, context);
      return;
  }
}

}  // namespace kmv
