// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedFaults.h>

#include <chrono>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Files.h"
#include "platform/TreeWalk.h"
#include "platform/Volumes.h"
#include "platform/simulated/ItemTree.h"
#include "platform/simulated/Scheduler.h"

namespace kmv::simulated {

/// The library's questions about volumes and items. Each waits for the volumes that its path leads to, and is answered
/// from the tree of items then.
class SimulatedFileSystem : public Volumes, public Files, public TreeWalk {
 public:
  SimulatedFileSystem(Scheduler& scheduler, simulation::ArmedFaults& faults)
      : scheduler_(scheduler), faults_(faults) {}

  std::vector<URL> mountedVolumeURLs() override;
  std::vector<HiddenMount> hiddenMounts() override;
  std::optional<Space> spaceAt(const std::string& path) override;
  std::optional<URL> volumeURL(const URL& url) override;
  FileBytes readRegularFile(const std::string& path, std::size_t mostBytes) override;
  std::unique_ptr<FileStream> openForReading(const std::string& path) override;
  ItemKind itemKind(const std::string& path) override;
  std::optional<Dictionary> attributesOfItem(const std::string& path) override;
  std::optional<std::string> currentFolder() override { return "/"; }
  std::optional<std::string> realPath(const std::string& path) override;
  const std::vector<std::string>& pathAliasPrefixes() override;

  ItemTree& items() { return items_; }
  const ItemTree& items() const { return items_; }
  const MountedVolumes& mounts() const { return items_.mounts(); }
  void addHiddenMount(HiddenMount mount) { hiddenMounts_.push_back(std::move(mount)); }
  void setSpace(simulation::DiskId volume, Space space) { spaces_[volume] = space; }
  void setAnswerTime(simulation::DiskId volume, std::chrono::nanoseconds time);
  /// The disk is gone; its id is never reused.
  void forget(simulation::DiskId volume);

  /// Which folders on the way to the item are asked for: a volume's root is known without asking the volume.
  enum class Asks { alsoForRoots, belowRoots };
  /// Lets the time pass that the volumes on the way to the item need.
  void waitFor(const std::string& path, Asks asks = Asks::alsoForRoots) const;

 private:
  void visitEachFile(const std::string& folder, const std::string& attribute,
                     const VisitFile& visit) override;
  struct Walk;
  bool walk(const Walk& walk, const std::string& shownPath, const std::string& resolvedFolder);

  Scheduler& scheduler_;
  simulation::ArmedFaults& faults_;
  ItemTree items_{scheduler_};
  std::vector<HiddenMount> hiddenMounts_;
  std::map<simulation::DiskId, std::chrono::nanoseconds> answerTimes_;
  std::map<simulation::DiskId, Space> spaces_;
};

}  // namespace kmv::simulated
