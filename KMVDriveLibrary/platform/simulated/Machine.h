// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/Platform.h"
#include "platform/simulated/EventBus.h"
#include "platform/simulated/Scheduler.h"
#include "platform/simulated/SimulatedDevices.h"
#include "platform/simulated/SimulatedFileSystem.h"

namespace kmv::simulated {

/// The machine's disks, and what their verbs mean in descriptions and events.
class Machine : public SessionMachine, public std::enable_shared_from_this<Machine> {
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
  void rescan() { bus_.rescan(disks_); }

  std::unique_ptr<DiskArbitrationSession> makeSession();

  /// The next command of its kind is refused with this record.
  void refuseNextUnmount(Dictionary dissenter) { unmountRefusals_.push_back(std::move(dissenter)); }
  void refuseNextRename(Dictionary dissenter) { renameRefusals_.push_back(std::move(dissenter)); }

  void begin(const std::shared_ptr<SessionState>& session) override { bus_.begin(session, disks_); }
  std::optional<testing::DiskId> diskMountedAt(const std::string& path) const override;
  std::optional<Dictionary> presentDescription(testing::DiskId disk) const override;
  std::optional<Dictionary> requestUnmount(testing::DiskId disk) override;
  std::optional<Dictionary> requestRename(testing::DiskId disk, const std::string& newName) override;

  Scheduler& scheduler() { return scheduler_; }
  SimulatedFileSystem& fileSystem() { return fileSystem_; }
  SimulatedIORegistry& ioRegistry() { return ioRegistry_; }
  SimulatedStatistics& statistics() { return statistics_; }
  SimulatedClock& clock() { return clock_; }
  SimulatedAttributes& attributes() { return attributes_; }
  std::vector<std::string>& serviceSearches() { return serviceSearches_; }
  SimulatedSystemInformation& systemInformation() { return systemInformation_; }
  EventBus& bus() { return bus_; }

 private:
  Dictionary& find(testing::DiskId disk);
  const std::string& mountPointOf(testing::DiskId disk);
  double nextAppearanceTime();
  std::string freeBSDName() const;
  testing::DiskId add(testing::DiskId disk, Dictionary description);
  void followPath(testing::DiskId disk, const Dictionary& description);
  std::optional<Dictionary> carryOut(testing::DiskId disk, std::deque<Dictionary>& refusals,
                                     const std::function<void()>& command);

  Scheduler scheduler_;
  SimulatedFileSystem fileSystem_;
  SimulatedStatistics statistics_{fileSystem_};
  SimulatedIORegistry ioRegistry_{statistics_};
  SimulatedClock clock_{scheduler_};
  SimulatedAttributes attributes_{fileSystem_};
  std::vector<std::string> serviceSearches_;
  SimulatedSystemInformation systemInformation_;
  EventBus bus_;
  DiskTable disks_;
  std::set<testing::DiskId> pathVolumes_;
  std::deque<Dictionary> unmountRefusals_;
  std::deque<Dictionary> renameRefusals_;
  std::uint64_t nextDisk_ = 1;
  double lastAppearanceTime_ = 0;
};

}  // namespace kmv::simulated
