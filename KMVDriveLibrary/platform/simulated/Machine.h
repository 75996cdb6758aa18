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
#include "platform/simulated/SimulatedAttributes.h"
#include "platform/simulated/SimulatedClock.h"
#include "platform/simulated/SimulatedFileSystem.h"
#include "platform/simulated/SimulatedIORegistry.h"
#include "platform/simulated/SimulatedPrograms.h"
#include "platform/simulated/SimulatedServiceBrowser.h"
#include "platform/simulated/SimulatedSystemInformation.h"

namespace kmv::simulated {

/// The simulated machine, from both sides: the test's verbs and the library's seam. Its own matter is the
/// disks: what their verbs mean in descriptions, mounts and events.
class Machine final : public simulation::SimulatedPlatform, public Platform {
 public:
  explicit Machine(std::uint64_t seed);
  Machine(const Machine&) = delete;
  Machine& operator=(const Machine&) = delete;

  // --- The verbs. ---
  simulation::DiskId plugIn(const simulation::SimulatedDisk& disk) override;
  simulation::DiskId plugInPathVolume(const simulation::SimulatedPathVolume& volume) override;
  void unplug(simulation::DiskId disk) override;
  void mount(simulation::DiskId disk, const std::string& path) override;
  void unmount(simulation::DiskId disk) override;
  void move(simulation::DiskId disk, const std::string& newPath) override;
  void rename(simulation::DiskId disk, const std::string& newName) override;
  void changeDescription(simulation::DiskId disk, const simulation::DescriptionChanges& changes) override;
  Dictionary description(simulation::DiskId disk) const override {
    requireDisk(disk);
    return tableOf(disk).at(disk);
  }
  bool exists(simulation::DiskId disk) const override {
    return disks_.contains(disk) || hiddenPathVolumes_.contains(disk);
  }

  void holdEvents() override { bus_.hold(); }
  void releaseEvents() override { bus_.release(); }
  std::vector<simulation::PendingEvent> pendingEvents() const override { return bus_.pending(); }
  void deliver(std::size_t index) override { bus_.deliver(index); }
  void shufflePending() override { bus_.shuffle(); }
  void lose(std::size_t index) override { bus_.lose(index); }
  void rescan() override { bus_.rescan(disks_); }

  void createItem(const std::string& path) override { items().createItem(path); }
  void writeFile(const std::string& path, const std::string& bytes) override {
    items().writeFile(path, bytes);
  }
  void setReportedSize(const std::string& path, std::uint64_t size) override {
    items().setReportedSize(path, size);
  }
  void removeItem(const std::string& path) override { items().removeItem(path); }
  void createLink(const std::string& path, const std::string& target) override {
    items().createLink(path, target);
  }
  void moveItem(const std::string& path, const std::string& newPath) override {
    items().moveItem(path, newPath);
  }
  void setListable(const std::string& folder, bool listable) override {
    items().setListable(folder, listable);
  }
  void setAnswerTime(simulation::DiskId disk, std::chrono::nanoseconds time) override {
    requireDisk(disk);
    fileSystem_.setAnswerTime(disk, time);
  }
  void setSpace(simulation::DiskId disk, Space space) override {
    requireDisk(disk);
    fileSystem_.setSpace(disk, space);
  }
  void addHiddenMount(HiddenMount mount) override { fileSystem_.addHiddenMount(std::move(mount)); }
  bool setAttribute(const std::string& path, const std::string& name, const std::string& value) override {
    return items().setAttribute(path, name, value);
  }
  bool removeAttribute(const std::string& path, const std::string& name) override {
    return items().setAttribute(path, name, std::nullopt);
  }
  std::optional<std::string> attribute(const std::string& path, const std::string& name) const override {
    return fileSystem_.items().attribute(path, name);
  }

  void installProgram(const std::string& path, simulation::SimulatedProgram program) override {
    programs_.programs[path] = std::move(program);
  }
  void removeProgram(const std::string& path) override { programs_.programs.erase(path); }
  void setOperatingSystemVersion(int major, int minor) override {
    systemInformation_.version = {major, minor, 0};
  }
  void addIOService(const std::string& foundUnder, const std::string& bsdName,
                    const std::vector<std::string>& childNames) override {
    ioRegistry_.services[foundUnder].push_back({bsdName, childNames});
  }
  void setStorageDevices(const std::string& bsdName, const StorageDevice& whole,
                         const std::vector<StorageDevice>& physical) override {
    ioRegistry_.disks[bsdName] = {whole, physical};
  }
  std::size_t ioRegistryQuestions() const override { return ioRegistry_.questions; }
  void setBlockStorageDriver(const std::string& path, std::optional<DriverCounters> counters) override {
    ioRegistry_.setDriver(path, counters);
  }
  void removeBlockStorageDriver(const std::string& path) override { ioRegistry_.removeDriver(path); }
  void setMediaPath(simulation::DiskId disk, const std::string& path) override {
    requireDisk(disk);
    ioRegistry_.setMediaPath(disk, path);
  }
  void hideFromUsers(simulation::DiskId disk) override {
    requireDisk(disk);
    ioRegistry_.hide(disk);
  }
  std::vector<std::string> serviceSearches() const override { return serviceSearches_; }

  std::size_t runUntilIdle() override { return scheduler_.runUntilIdle(); }
  bool runOne() override { return scheduler_.runOne(); }
  void advance(std::chrono::nanoseconds duration) override { scheduler_.advance(duration); }
  std::chrono::nanoseconds now() const override { return scheduler_.now(); }
  void setWallClock(Date date) override { clock_.set(date); }
  std::string currentQueueLabel() const override { return scheduler_.currentQueueLabel(); }

  // --- The seam. ---
  QueueFactory& queues() override { return scheduler_; }
  Volumes& volumes() override { return fileSystem_; }
  Files& files() override { return fileSystem_; }
  TreeWalk& treeWalk() override { return fileSystem_; }
  IORegistry& ioRegistry() override { return ioRegistry_; }
  SystemInformation& systemInformation() override { return systemInformation_; }
  Clock& clock() override { return clock_; }
  ExtendedAttributes& extendedAttributes() override { return attributes_; }
  ChildProcess& childProcess() override { return programs_; }
  std::unique_ptr<NetServiceBrowser> makeServiceBrowser() override {
    return std::make_unique<SimulatedServiceBrowser>(serviceSearches_);
  }
  std::unique_ptr<DiskArbitrationSession> makeDiskArbitrationSession() override;

  // --- For sessions. ---
  /// Reports every disk to a session that has just registered.
  void reportPresentDisks(const std::shared_ptr<SessionState>& session) { bus_.begin(session, disks_); }
  std::optional<simulation::DiskId> diskMountedAt(const std::string& path) const {
    return fileSystem_.mounts().volumeMountedAt(path);
  }
  /// None when the disk is gone.
  std::optional<Dictionary> presentDescription(simulation::DiskId disk) const;
  // Commands: carried out at once. The result is the dissenter's record, or none.
  std::optional<Dictionary> requestUnmount(simulation::DiskId disk);
  std::optional<Dictionary> requestRename(simulation::DiskId disk, const std::string& newName);

 private:
  void requireDisk(simulation::DiskId disk) const override;
  const DiskTable& tableOf(simulation::DiskId disk) const {
    return hiddenPathVolumes_.contains(disk) ? hiddenPathVolumes_ : disks_;
  }
  Dictionary& find(simulation::DiskId disk) {
    requireDisk(disk);
    return (hiddenPathVolumes_.contains(disk) ? hiddenPathVolumes_ : disks_).at(disk);
  }
  ItemTree& items() { return fileSystem_.items(); }
  const MountedVolumes& mounts() const { return fileSystem_.mounts(); }
  double nextAppearanceTime();
  std::string freeBSDName() const;
  simulation::DiskId add(simulation::DiskId disk, Dictionary description);
  void followPath(simulation::DiskId disk, const Dictionary& description);
  void emitWithOthers(std::optional<Event> event);
  void endPath(simulation::DiskId disk);
  void bringPathBack(simulation::DiskId disk);
  std::optional<Dictionary> refusalOf(simulation::DiskId disk, std::deque<Dictionary>& armed) const;

  Scheduler scheduler_;
  SimulatedFileSystem fileSystem_{scheduler_, armedFaults()};
  SimulatedPrograms programs_;
  SimulatedAttributes attributes_{fileSystem_, programs_};
  SimulatedIORegistry ioRegistry_{fileSystem_, armedFaults()};
  SimulatedClock clock_{scheduler_};
  SimulatedSystemInformation systemInformation_;
  std::vector<std::string> serviceSearches_;
  EventBus bus_;
  DiskTable disks_;  // those that sessions know of
  DiskTable hiddenPathVolumes_;
  std::set<simulation::DiskId> pathVolumes_;
  std::uint64_t nextDisk_ = 1;
  double lastAppearanceTime_ = 0;
};

}  // namespace kmv::simulated
