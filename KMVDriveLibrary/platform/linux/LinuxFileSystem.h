// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/FileSystem.h"
#include "platform/linux/LinuxOptions.h"
#include "platform/linux/MountTree.h"
#include "platform/linux/VolumeLookup.h"

namespace kmv {

/// The file system and the mount table of this process's view. Any thread.
class LinuxFileSystem final : public FileSystem {
 public:
  explicit LinuxFileSystem(const LinuxOptions& options);

  std::vector<URL> mountedVolumeURLs() override;
  std::vector<HiddenMount> hiddenMounts() override;
  std::optional<URL> volumeURL(const URL& url) override;
  FileBytes readRegularFile(const std::string& path, std::size_t mostBytes) override;
  std::unique_ptr<FileStream> openForReading(const std::string& path) override;
  ItemKind itemKind(const std::string& path) override;
  std::optional<std::uint64_t> sizeOfItem(const std::string& path) override;
  std::optional<Dictionary> attributesOfItem(const std::string& path) override;
  void visitFiles(const std::string& folder, const std::string& attribute, const VisitFile& visit) override;
  bool itemExists(const std::string& path) override;
  std::optional<std::string> realPath(const std::string& path) override;
  const std::vector<std::string>& pathAliasPrefixes() override;

 private:
  MountTree readMountTree() const;

  std::string mountTable_;
  std::string viewRoot_;
  VolumeLookup lookup_;
};

}  // namespace kmv
