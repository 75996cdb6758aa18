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

/// What is mounted where, and which items exist. An item on a mounted volume belongs to the volume and moves
/// with it; what is mounted at "/" owns none: items there belong to the machine itself.
class SimulatedFileSystem : public Volumes, public Files, public TreeWalk {
 public:
  SimulatedFileSystem(const Scheduler& scheduler, testing::ArmedFaults& faults);

  std::vector<URL> mountedVolumeURLs() override;
  std::vector<HiddenMount> hiddenMounts() override;
  std::optional<URL> volumeURL(const URL& url) override;
  FileBytes readRegularFile(const std::string& path, std::size_t mostBytes) override;
  std::unique_ptr<FileStream> openForReading(const std::string& path) override;
  ItemKind itemKind(const std::string& path) override;
  std::optional<Dictionary> attributesOfItem(const std::string& path) override;
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

  void createItem(const std::string& path);
  void writeFile(const std::string& path, std::string bytes);
  void setReportedSize(const std::string& path, std::uint64_t size);
  void removeItem(const std::string& path);
  void createLink(const std::string& path, const std::string& target);
  void addHiddenMount(HiddenMount mount) { hiddenMounts_.push_back(std::move(mount)); }
  /// The attributes of the item at `path`, links followed; null without the item.
  std::map<std::string, std::string>* attributesOf(const std::string& path);
  std::optional<std::string> attribute(const std::string& path, const std::string& name) const;

 private:
  void visitEachFile(const std::string& folder, const std::string& attribute,
                     const VisitFile& visit) override;

  struct Mount {
    testing::DiskId volume;
    URL url;            // as it was mounted
    std::string path;   // the same as a path
    std::string where;  // with links resolved, where the items are found; the root is the empty text
  };
  /// The volume that holds an item (none: the machine itself) and the path from there, "/" first; "" for the
  /// volume's root.
  using Place = std::pair<std::optional<testing::DiskId>, std::string>;
  /// What a verb made. Folders on the way to it exist without an item of their own.
  struct Item {
    std::optional<std::string> contents;  // of a regular file that can be read
    std::optional<std::string> target;    // of a link
    std::optional<std::uint64_t> reportedSize;
  };

  /// In bytes; of the item itself when it is a link.
  std::optional<std::uint64_t> sizeOfItem(const std::string& path) const;
  enum class Missing { isNone, isKept };
  std::optional<std::string> resolve(const std::string& path, Missing missing) const;
  bool itemExists(const std::string& path) const { return resolve(path, Missing::isNone).has_value(); }
  Place placeOf(const std::string& resolvedPath) const;
  std::optional<Place> placeOfLinkItself(const std::string& path) const;
  Place placeToChange(const std::string& path) const;
  const Item* itemItself(const std::string& path) const;
  const std::string* targetAt(const Place& place) const;
  bool isThere(const std::string& resolvedPath) const;
  /// Names, in ascending order.
  std::set<std::string> contentsOfFolder(const std::string& resolvedPath) const;
  struct Walk;
  bool walk(const Walk& walk, const std::string& shownPath, const std::string& resolvedPath);

  const Scheduler& scheduler_;
  std::vector<Mount> mounts_;
  std::vector<HiddenMount> hiddenMounts_;
  testing::ArmedFaults& faults_;
  std::map<Place, Item> items_;
  std::map<Place, std::map<std::string, std::string>> attributes_;
};

}  // namespace kmv::simulated
