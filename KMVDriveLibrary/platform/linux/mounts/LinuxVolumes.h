// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <vector>

#include "platform/Volumes.h"
#include "platform/linux/LinuxOptions.h"
#include "platform/linux/mounts/MountTree.h"
#include "platform/linux/mounts/VolumeLookup.h"

namespace kmv {

/// The volumes of this process's view. Any thread.
class LinuxVolumes final : public Volumes {
 public:
  explicit LinuxVolumes(const LinuxOptions& options);

  std::vector<URL> mountedVolumeURLs() override;
  std::vector<HiddenMount> hiddenMounts() override;
  std::optional<URL> volumeURL(const URL& url) override;

 private:
  MountTree readMountTree() const;

  std::string mountTable_;
  std::string viewRoot_;
  VolumeLookup lookup_;
};

}  // namespace kmv
