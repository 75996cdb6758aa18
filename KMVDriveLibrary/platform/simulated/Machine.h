// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <cstdint>
#include <memory>
#include <set>
#include <string>

#include "platform/Platform.h"
#include "platform/simulated/EventBus.h"
#include "platform/simulated/Scheduler.h"
#include "platform/simulated/SimulatedDevices.h"
#include "platform/simulated/SimulatedFileSystem.h"

namespace kmv::simulated {

/// The machine's disks, and what their verbs mean in descriptions and events.
class Machine : public std::enable_shared_from_this<Machine> {
 public:
  explicit Machine(std::uint64_t seed);
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  testing::DiskId plugIn(const testing::SimulatedDisk& disk);
  testing::DiskId plugInPathVolume(const testing::SimulatedPathVolume& volume);
  void unplug(testing::DiskId disk);
  void mount(testing::DiskId disk, const std::string& path);
  void unmount(testing::DiskId disk);
  void move(testing::DiskId disk, const std::string& newPath);
  void rename(testing::DiskId disk, const std::string& newName);
  void changeDescription(testing::DiskId disk, const testing::DescriptionChanges& changes);
  const Dictionary& description(testing::DiskId disk);
  bool exists(testing::DiskId disk) const { return disks_.find(disk) != disks_.end(); }
  /// The description of what is mounted exactly at this path; null when nothing is.
  const Dictionary* mountedAt(const std::string& path) const;
  void rescan() { bus_.rescan(disks_); }

  std::unique_ptr<DiskArbitrationSession> makeSession();

  Scheduler& scheduler() { return scheduler_; }
  SimulatedFileSystem& fileSystem() { return fileSystem_; }
  SimulatedIORegistry& ioRegistry() { return ioRegistry_; }
  SimulatedSystemInformation& systemInformation() { return systemInformation_; }
  EventBus& bus() { return bus_; }

 private:
  Dictionary& find(testing::DiskId disk);
  const std::string& mountPointOf(testing::DiskId disk);
  double nextAppearanceTime();
  std::string freeBSDName() const;
  testing::DiskId add(testing::DiskId disk, Dictionary description);
  void followPath(testing::DiskId disk, const Dictionary& description);

  Scheduler scheduler_;
  SimulatedFileSystem fileSystem_;
  SimulatedIORegistry ioRegistry_;
  SimulatedSystemInformation systemInformation_;
  EventBus bus_;
  DiskTable disks_;
  std::set<testing::DiskId> pathVolumes_;
  std::uint64_t nextDisk_ = 1;
  double lastAppearanceTime_ = 0;
};

}  // namespace kmv::simulated
