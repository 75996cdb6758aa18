// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <vector>

#include "platform/Volumes.h"

namespace kmv::macos {

/// Hidden are the mounts of which the daemon never makes a disk. One that is only not to be browsed is a disk.
class MacVolumes final : public Volumes {
 public:
  std::vector<URL> mountedVolumeURLs() override;
  std::vector<HiddenMount> hiddenMounts() override;
  std::optional<Space> spaceAt(const std::string& path) override;
  /// As the platform's file manager says it, not `statfs`: below a firmlink the two differ.
  std::optional<URL> volumeURL(const URL& url) override;
};

}  // namespace kmv::macos
