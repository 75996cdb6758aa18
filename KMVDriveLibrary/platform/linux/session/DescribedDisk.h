// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/Value.h>

#include <optional>
#include <utility>

namespace kmv {

/// A disk as it was when its event was queued.
class DescribedDisk final : public Disk {
 public:
  explicit DescribedDisk(Dictionary description) : description_(std::move(description)) {}
  std::optional<Dictionary> copyDescription() const override { return description_; }

 private:
  Dictionary description_;
};

}  // namespace kmv
