// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

#include "platform/Volumes.h"
#include "platform/linux/LinuxOptions.h"
#include "platform/linux/mounts/MountTable.h"
#include "platform/linux/mounts/VolumeLookup.h"

namespace kmv {

/// The volumes of the mount table. Any thread.
class LinuxVolumes final : public Volumes {
 public:
  LinuxVolumes(const LinuxOptions& options, std::shared_ptr<MountTable> mounts);

  std::vector<URL> mountedVolumeURLs() override;
  std::vector<HiddenMount> hiddenMounts() override;
  MountEvents mountEvents() override { return mounts_->events(); }
  std::optional<Space> spaceAt(const std::string& path) override;
  std::optional<URL> volumeURL(const URL& url) override;

 private:
  void forEach(const MountTree::Visit& visit);

  const std::shared_ptr<MountTable> mounts_;
  VolumeLookup lookup_;
};

}  // namespace kmv
