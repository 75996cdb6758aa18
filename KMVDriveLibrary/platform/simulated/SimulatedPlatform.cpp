// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <utility>

#include "base/Fatal.h"
#include "platform/simulated/Machine.h"

namespace kmv {
namespace {

class PlatformOfMachine : public Platform {
 public:
  explicit PlatformOfMachine(std::shared_ptr<simulated::Machine> machine) : machine_(std::move(machine)) {}

  QueueFactory& queues() override { return machine_->scheduler(); }
  Volumes& volumes() override { return machine_->fileSystem(); }
  Files& files() override { return machine_->fileSystem(); }
  TreeWalk& treeWalk() override { return machine_->fileSystem(); }
  IORegistry& ioRegistry() override { return machine_->ioRegistry(); }
  SystemInformation& systemInformation() override { return machine_->systemInformation(); }
  ExtendedAttributes& extendedAttributes() override { return machine_->attributes(); }
  ChildProcess& childProcess() override { return machine_->attributes(); }
  Clock& clock() override { return machine_->clock(); }
  std::unique_ptr<NetServiceBrowser> makeServiceBrowser() override {
    return std::make_unique<simulated::SimulatedServiceBrowser>(machine_->serviceSearches());
  }
  std::unique_ptr<DiskArbitrationSession> makeDiskArbitrationSession() override {
    return machine_->makeSession();
  }

 private:
  std::shared_ptr<simulated::Machine> machine_;
};

Dictionary dissenterOf(std::optional<std::int64_t> status, std::optional<std::int64_t> processID) {
  Dictionary dissenter;
  if (status) dissenter.set(key::kDissenterStatus, *status);
  if (processID) dissenter.set(key::kDissenterProcessID, *processID);
  return dissenter;
}

}  // namespace

namespace testing {

SimulatedPlatform& SimulatedPlatform::install(std::uint64_t seed) {
  auto machine = std::make_shared<simulated::Machine>(seed);
  if (!Platform::install(std::make_unique<PlatformOfMachine>(machine))) {
    fatal("the simulated machine must be installed once, before the library's first use");
  }
  // Never destroyed: the library may use it until the process ends.
  static SimulatedPlatform* const installed = new SimulatedPlatform(std::move(machine));
  return *installed;
}

SimulatedPlatform::SimulatedPlatform(std::shared_ptr<simulated::Machine> machine)
    : machine_(std::move(machine)) {}

DiskId SimulatedPlatform::plugIn(const SimulatedDisk& disk) {
  return machine_->plugIn(disk);
}
DiskId SimulatedPlatform::plugInPathVolume(const SimulatedPathVolume& volume) {
  return machine_->plugInPathVolume(volume);
}
void SimulatedPlatform::unplug(DiskId disk) {
  machine_->unplug(disk);
}
void SimulatedPlatform::mount(DiskId disk, const std::string& path) {
  machine_->mount(disk, path);
}
void SimulatedPlatform::unmount(DiskId disk) {
  machine_->unmount(disk);
}
void SimulatedPlatform::move(DiskId disk, const std::string& newPath) {
  machine_->move(disk, newPath);
}
void SimulatedPlatform::rename(DiskId disk, const std::string& newName) {
  machine_->rename(disk, newName);
}
void SimulatedPlatform::changeDescription(DiskId disk, const DescriptionChanges& changes) {
  machine_->changeDescription(disk, changes);
}
void SimulatedPlatform::changeDescriptionKey(DiskId disk, const std::string& key,
                                             std::optional<Value> value) {
  machine_->changeDescription(disk, {{key, std::move(value)}});
}
Dictionary SimulatedPlatform::description(DiskId disk) const {
  return machine_->description(disk);
}
bool SimulatedPlatform::exists(DiskId disk) const {
  return machine_->exists(disk);
}

void SimulatedPlatform::holdEvents() {
  machine_->bus().hold();
}
void SimulatedPlatform::releaseEvents() {
  machine_->bus().release();
}
std::vector<PendingEvent> SimulatedPlatform::pendingEvents() const {
  return machine_->bus().pending();
}
void SimulatedPlatform::deliverNext() {
  machine_->bus().deliver(0);
}
void SimulatedPlatform::deliver(std::size_t index) {
  machine_->bus().deliver(index);
}
void SimulatedPlatform::shufflePending() {
  machine_->bus().shuffle();
}
void SimulatedPlatform::loseNextEvent() {
  machine_->bus().loseNext();
}
void SimulatedPlatform::lose(std::size_t index) {
  machine_->bus().lose(index);
}
void SimulatedPlatform::rescan() {
  machine_->rescan();
}

void SimulatedPlatform::failNextDescription() {
  machine_->bus().failNextDescription();
}
void SimulatedPlatform::dropKeyFromNextDescription(const std::string& key) {
  machine_->bus().dropKeyFromNextDescription(key);
}
void SimulatedPlatform::vanishWhileDescribed(DiskId disk) {
  machine_->bus().vanishWhileDescribed(disk);
}
void SimulatedPlatform::refuseNextUnmount(std::optional<std::int64_t> status,
                                          std::optional<std::int64_t> processID) {
  machine_->refuseNextUnmount(dissenterOf(status, processID));
}
void SimulatedPlatform::refuseNextRename(std::optional<std::int64_t> status,
                                         std::optional<std::int64_t> processID) {
  machine_->refuseNextRename(dissenterOf(status, processID));
}
void SimulatedPlatform::failNextMountedVolumeList() {
  machine_->fileSystem().failNextMountedVolumeList();
}

void SimulatedPlatform::createItem(const std::string& path) {
  machine_->fileSystem().createItem(path);
}
void SimulatedPlatform::writeFile(const std::string& path, const std::string& bytes) {
  machine_->fileSystem().writeFile(path, bytes);
}
void SimulatedPlatform::setReportedSize(const std::string& path, std::uint64_t size) {
  machine_->fileSystem().setReportedSize(path, size);
}
void SimulatedPlatform::removeItem(const std::string& path) {
  machine_->fileSystem().removeItem(path);
}
void SimulatedPlatform::createLink(const std::string& path, const std::string& target) {
  machine_->fileSystem().createLink(path, target);
}
void SimulatedPlatform::addHiddenMount(HiddenMount mount) {
  machine_->fileSystem().addHiddenMount(std::move(mount));
}

void SimulatedPlatform::setOperatingSystemVersion(int major, int minor) {
  machine_->systemInformation().version = {major, minor, 0};
}
void SimulatedPlatform::addIOService(const std::string& foundUnder, const std::string& bsdName,
                                     const std::vector<std::string>& childNames) {
  machine_->ioRegistry().services[foundUnder].push_back({bsdName, childNames});
}
void SimulatedPlatform::setStorageDevices(const std::string& bsdName, const StorageDevice& whole,
                                          const std::vector<StorageDevice>& physical) {
  machine_->ioRegistry().disks[bsdName] = {whole, physical};
}
std::size_t SimulatedPlatform::ioRegistryQuestions() const {
  return machine_->ioRegistry().questions;
}

void SimulatedPlatform::setBlockStorageDriver(const std::string& path,
                                              std::optional<SimulatedCounters> counters) {
  machine_->statistics().drivers[path] =
      counters ? std::optional(DriverCounters{counters->bytesRead, counters->bytesWritten,
                                              counters->readLatency, counters->writeLatency})
               : std::nullopt;
}
void SimulatedPlatform::removeBlockStorageDriver(const std::string& path) {
  machine_->statistics().drivers.erase(path);
}
void SimulatedPlatform::failNextDriverLookup() {
  ++machine_->statistics().lookupsToFail;
}
void SimulatedPlatform::setMediaPath(DiskId disk, const std::string& path) {
  machine_->statistics().mediaPaths[disk] = path;
}
void SimulatedPlatform::hideFromUsers(DiskId disk) {
  machine_->statistics().hidden.insert(disk);
}
bool SimulatedPlatform::setAttribute(const std::string& path, const std::string& name,
                                     const std::string& value) {
  return machine_->attributes().set(path, name, value);
}
std::optional<std::string> SimulatedPlatform::attribute(const std::string& path,
                                                        const std::string& name) const {
  return machine_->attributes().get(path, name);
}
void SimulatedPlatform::installProgram(const std::string& path, SimulatedProgram program) {
  machine_->attributes().programs[path] = std::move(program);
}
void SimulatedPlatform::removeProgram(const std::string& path) {
  machine_->attributes().programs.erase(path);
}
std::vector<std::string> SimulatedPlatform::serviceSearches() const {
  return machine_->serviceSearches();
}

std::size_t SimulatedPlatform::runUntilIdle() {
  return machine_->scheduler().runUntilIdle();
}
bool SimulatedPlatform::runOne() {
  return machine_->scheduler().runOne();
}
void SimulatedPlatform::advance(std::chrono::nanoseconds duration) {
  machine_->scheduler().advance(duration);
}
std::chrono::nanoseconds SimulatedPlatform::now() const {
  return machine_->scheduler().now();
}
std::string SimulatedPlatform::currentQueueLabel() const {
  return machine_->scheduler().currentQueueLabel();
}

}  // namespace testing
}  // namespace kmv
