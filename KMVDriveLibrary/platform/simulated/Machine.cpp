// SPDX-License-Identifier: MIT
#include "platform/simulated/Machine.h"

#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/DissentStatus.h>

#include <algorithm>
#include <utility>

#include "base/DifferingKeys.h"
#include "base/Fatal.h"
#include "platform/simulated/Descriptions.h"
#include "platform/simulated/SimulatedSession.h"

namespace kmv::simulated {
namespace {

using testing::DiskId;
using Kind = testing::PendingEvent::Kind;

/// Between two disks that appear at the same time; still above a double's resolution at this magnitude.
constexpr double kShortestTimeBetweenAppearances = 1e-6;

}  // namespace

Machine::Machine(std::uint64_t seed) : scheduler_(seed), bus_(~seed, armedFaults()) {}

void Machine::requireDisk(DiskId disk) const {
  scheduler_.requireOwnThread();
  if (!exists(disk))
    fatal("the simulated machine has no disk " + std::to_string(static_cast<std::uint64_t>(disk)));
}

const std::string& Machine::mountPointOf(DiskId disk) const {
  const std::string* path = fileSystem_.mountPoint(disk);
  if (path == nullptr) fatal("the volume is not mounted");
  return *path;
}

double Machine::nextAppearanceTime() {
  lastAppearanceTime_ =
      std::max(clock_.now().secondsSinceReferenceDate, lastAppearanceTime_ + kShortestTimeBetweenAppearances);
  return lastAppearanceTime_;
}

std::string Machine::freeBSDName() const {
  std::int64_t unit = 0;
  for (const auto& [disk, description] : disks_) {
    const Value* used = description.find(key::kMediaBSDUnit);
    if (used != nullptr) unit = std::max(unit, used->integerValue() + 1);
  }
  return "disk" + std::to_string(unit);
}

DiskId Machine::plugIn(const testing::SimulatedDisk& disk) {
  scheduler_.requireOwnThread();
  const std::uint64_t number = nextDisk_++;
  const std::string bsdName = disk.bsdName.empty() ? freeBSDName() : disk.bsdName;
  return add(DiskId{number}, describe(disk, bsdName, nextAppearanceTime(), number));
}

DiskId Machine::plugInPathVolume(const testing::SimulatedPathVolume& volume) {
  scheduler_.requireOwnThread();
  if (volume.mountPoint.empty()) fatal("a path volume needs a mount point");
  const DiskId disk{nextDisk_++};
  pathVolumes_.insert(disk);
  return add(disk, describe(volume));
}

DiskId Machine::add(DiskId disk, Dictionary description) {
  followPath(disk, description);
  bus_.emit({Kind::appeared, disk, description, {}});
  disks_.emplace(disk, std::move(description));
  return disk;
}

/// Brings the mount table in line with the description.
void Machine::followPath(DiskId disk, const Dictionary& description) {
  const URL* url = description.url(key::kVolumePath);
  const std::string* mounted = fileSystem_.mountPoint(disk);
  if (url != nullptr && mounted != nullptr && url->path() == *mounted) return;
  fileSystem_.unmount(disk);
  if (url != nullptr) fileSystem_.mount(disk, *url);
}

void Machine::unplug(DiskId disk) {
  Dictionary last = std::move(find(disk));
  disks_.erase(disk);
  pathVolumes_.erase(disk);
  ioRegistry_.forget(disk);
  fileSystem_.unmount(disk);
  bus_.emit({Kind::disappeared, disk, std::move(last), {}});
}

void Machine::mount(DiskId disk, const std::string& path) {
  requireDisk(disk);
  if (fileSystem_.mountPoint(disk) != nullptr) fatal("the volume is mounted already");
  changeDescription(disk, {{key::kVolumePath, mountURL(path)}});
}

void Machine::unmount(DiskId disk) {
  requireDisk(disk);
  mountPointOf(disk);
  if (pathVolumes_.contains(disk)) return unplug(disk);
  changeDescription(disk, {{key::kVolumePath, std::nullopt}});
}

void Machine::move(DiskId disk, const std::string& newPath) {
  Dictionary& description = find(disk);
  if (mountPointOf(disk) == newPath) return;
  bus_.emit({Kind::disappeared, disk, description, {}, Event::Cause::move});
  description.set(key::kVolumePath, mountURL(newPath));
  followPath(disk, description);
  bus_.emit({Kind::appeared, disk, description, {}});
}

void Machine::rename(DiskId disk, const std::string& newName) {
  const Dictionary& description = find(disk);
  testing::DescriptionChanges changes{{key::kVolumeName, newName}};
  const std::string* oldName = description.text(key::kVolumeName);
  const std::string* path = fileSystem_.mountPoint(disk);
  if (oldName != nullptr && path != nullptr && *path == defaultMountPoint(*oldName)) {
    changes.emplace(key::kVolumePath, mountURL(defaultMountPoint(newName)));
  }
  changeDescription(disk, changes);
}

void Machine::changeDescription(DiskId disk, const testing::DescriptionChanges& changes) {
  Dictionary& description = find(disk);
  Dictionary changed = description;
  apply(changes, changed);
  ChangedKeys keys = differingKeys(description, changed);
  if (keys.empty()) return;
  const bool replacedPath = description.contains(key::kVolumePath) && changed.contains(key::kVolumePath) &&
                            std::find(keys.begin(), keys.end(), key::kVolumePath) != keys.end();
  description = std::move(changed);
  followPath(disk, description);
  bus_.emit({Kind::descriptionChanged, disk, description, std::move(keys),
             replacedPath ? Event::Cause::replacedPath : Event::Cause::ordinary});
}

std::unique_ptr<DiskArbitrationSession> Machine::makeDiskArbitrationSession() {
  scheduler_.requireOwnThread();
  auto state = std::make_shared<SessionState>([this](DiskId disk) {
    if (exists(disk)) unplug(disk);
  });
  bus_.add(state);
  return std::make_unique<SimulatedSession>(std::move(state), *this);
}

std::optional<DiskId> Machine::diskMountedAt(const std::string& path) const {
  scheduler_.requireOwnThread();
  for (const auto& [disk, description] : disks_) {
    const std::string* point = fileSystem_.mountPoint(disk);
    if (point != nullptr && *point == path) return disk;
  }
  return std::nullopt;
}

std::optional<Dictionary> Machine::presentDescription(DiskId disk) const {
  scheduler_.requireOwnThread();
  const auto found = disks_.find(disk);
  return found == disks_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<Dictionary> Machine::requestUnmount(DiskId disk) {
  return carryOut(disk, armedFaults().unmountRefusals, [&] { unmount(disk); });
}

std::optional<Dictionary> Machine::requestRename(DiskId disk, const std::string& newName) {
  return carryOut(disk, armedFaults().renameRefusals, [&] { rename(disk, newName); });
}

/// A disk that was unplugged or unmounted since the library looked it up refuses as not mounted.
std::optional<Dictionary> Machine::carryOut(DiskId disk, std::deque<Dictionary>& refusals,
                                            const std::function<void()>& command) {
  scheduler_.requireOwnThread();
  if (!refusals.empty()) {
    Dictionary dissenter = std::move(refusals.front());
    refusals.pop_front();
    return dissenter;
  }
  if (!exists(disk) || fileSystem_.mountPoint(disk) == nullptr)
    return Dictionary{{key::kDissenterStatus, dissent::kNotMounted}};
  command();
  return std::nullopt;
}

}  // namespace kmv::simulated
