// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/Files.h"
#include "platform/TreeWalk.h"
#include "platform/Volumes.h"
#include "platform/simulated/Scheduler.h"

namespace kmv::simulated {

/// Names and links only: what is mounted where, and what exists. An item on a mounted volume belongs to the
/// volume and goes where it goes; "/" counts as the machine's own, whatever is mounted there.
class SimulatedFileSystem : public Volumes, public Files, public TreeWalk {
 public:
  explicit SimulatedFileSystem(const Scheduler& scheduler);

  std::vector<URL> mountedVolumeURLs() override;
  std::vector<HiddenMount> hiddenMounts() override;
  std::optional<URL> volumeURL(const URL& url) override;
  FileBytes readRegularFile(const std::string& path, std::size_t mostBytes) override;
  std::unique_ptr<FileStream> openForReading(const std::string& path) override;
  ItemKind itemKind(const std::string& path) override;
  std::optional<Dictionary> attributesOfItem(const std::string& path) override;
  void visitFiles(const std::string& folder, const std::string& attribute, const VisitFile& visit) override;
  std::optional<std::string> currentFolder() override { return "/"; }
  std::optional<std::string> realPath(const std::string& path) override;
  const std::vector<std::string>& pathAliasPrefixes() override;

  void mount(testing::DiskId volume, const URL& mountPoint);
  void unmount(testing::DiskId volume);
  /// The mount point of the volume; null when it is not mounted.
  const std::string* mountPoint(testing::DiskId volume) const;

  /// Every mounted volume, in the order of the mounts.
  void forEachVolume(const std::function<void(testing::DiskId, const URL&)>& visit) const {
    for (const Mount& mount : mounts_) visit(mount.volume, mount.url);
  }

  bool itemExists(const std::string& path);
  void createItem(const std::string& path);
  void writeFile(const std::string& path, std::string bytes);
  void setReportedSize(const std::string& path, std::uint64_t size);
  void removeItem(const std::string& path);
  void createLink(const std::string& path, const std::string& target);
  void addHiddenMount(HiddenMount mount) { hiddenMounts_.push_back(std::move(mount)); }
  /// Whom walks ask for attributes.
  void setAttributeSource(
      std::function<std::optional<std::string>(const std::string&, const std::string&)> source) {
    attributeOf_ = std::move(source);
  }
  void failNextMountedVolumeList() { ++listsToFail_; }

 private:
  struct Mount {
    testing::DiskId volume;
    URL url;            // as it was mounted
    std::string path;   // the same as a path
    std::string where;  // with links resolved, where the items are found; the root is the empty text
  };
  /// The volume that holds an item (none: the machine itself) and the path from there, "/" first; "" for the
  /// volume's root.
  using Place = std::pair<std::optional<testing::DiskId>, std::string>;

  /// In bytes; of the item itself when it is a link.
  std::optional<std::uint64_t> sizeOfItem(const std::string& path);
  enum class Missing { isNone, isKept };
  std::optional<std::string> resolve(const std::string& path, Missing missing) const;
  Place placeOf(const std::string& resolvedPath) const;
  Place placeOfNew(const std::string& path) const;
  bool isThere(const std::string& resolvedPath) const;
  /// Names, in ascending order.
  std::set<std::string> contentsOfFolder(const std::string& resolvedPath) const;
  struct Walk;
  bool walk(const Walk& walk, const std::string& shownPath, const std::string& resolvedPath);

  const Scheduler& scheduler_;
  std::vector<Mount> mounts_;
  std::vector<HiddenMount> hiddenMounts_;
  std::set<Place> items_;
  std::map<Place, std::string> links_;
  std::map<Place, std::string> contents_;  // of the items that are regular files
  std::map<Place, std::uint64_t> reportedSizes_;
  std::function<std::optional<std::string>(const std::string&, const std::string&)> attributeOf_;
  int listsToFail_ = 0;
};

}  // namespace kmv::simulated
