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

using simulation::DiskId;
using Kind = simulation::PendingEvent::Kind;

/// Between two disks that appear at the same time; still above a double's resolution at this magnitude.
constexpr double kShortestTimeBetweenAppearances = 1e-6;

}  // namespace

Machine::Machine(std::uint64_t seed) : scheduler_(seed), bus_(~seed, armedFaults()) {}

void Machine::requireDisk(DiskId disk) const {
  scheduler_.requireOwnThread();
  if (!exists(disk))
    fatal("the simulated machine has no disk " + std::to_string(static_cast<std::uint64_t>(disk)));
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

DiskId Machine::plugIn(const simulation::SimulatedDisk& disk) {
  scheduler_.requireOwnThread();
  const std::uint64_t number = nextDisk_++;
  const std::string bsdName = disk.bsdName.empty() ? freeBSDName() : disk.bsdName;
  return add(DiskId{number}, describe(disk, bsdName, nextAppearanceTime(), number));
}

DiskId Machine::plugInPathVolume(const simulation::SimulatedPathVolume& volume) {
  scheduler_.requireOwnThread();
  if (volume.mountPoint.empty()) fatal("a path volume needs a mount point");
  const DiskId disk{nextDisk_++};
  pathVolumes_.insert(disk);
  return add(disk, describe(volume));
}

DiskId Machine::add(DiskId disk, Dictionary description) {
  const Dictionary& added = disks_.emplace(disk, std::move(description)).first->second;
  followPath(disk, added);
  emitWithOthers(Event{Kind::appeared, disk, added, {}});
  return disk;
}

/// Brings the mount table in line with the description.
void Machine::followPath(DiskId disk, const Dictionary& description) {
  items().unmount(disk);
  const URL* const url = description.url(key::kVolumePath);
  const std::string* const kind = description.text(key::kVolumeKind);
  if (url != nullptr) items().mount(disk, *url, kind == nullptr ? std::string() : *kind);
}

/// Emits the event of `disk`, which may be none, between those of the volumes that its mount hid and that its end
/// uncovered: their mounts stayed, but their paths led elsewhere meanwhile. In this order, since the registry ignores an
/// arrival at a path that it knows.
void Machine::emitWithOthers(std::optional<Event> event) {
  const auto others = items().takeAffectedVolumes();
  for (const DiskId other : others) {
    if (!mounts().isReachable(other)) endPath(other);
  }
  if (event) bus_.emit(std::move(*event));
  for (const DiskId other : others) {
    if (mounts().isReachable(other)) bringPathBack(other);
  }
}

void Machine::endPath(DiskId disk) {
  if (pathVolumes_.contains(disk)) {
    auto entry = disks_.extract(disk);
    if (entry.empty()) return;
    bus_.emit({Kind::disappeared, disk, entry.mapped(), {}});
    hiddenPathVolumes_.insert(std::move(entry));
  } else if (Dictionary& description = disks_.at(disk); description.contains(key::kVolumePath)) {
    description.remove(key::kVolumePath);
    bus_.emit({Kind::descriptionChanged, disk, description, {key::kVolumePath}});
  }
}

void Machine::bringPathBack(DiskId disk) {
  if (pathVolumes_.contains(disk)) {
    auto entry = hiddenPathVolumes_.extract(disk);
    if (entry.empty()) return;
    bus_.emit({Kind::appeared, disk, entry.mapped(), {}});
    disks_.insert(std::move(entry));
  } else if (Dictionary& description = disks_.at(disk); !description.contains(key::kVolumePath)) {
    description.set(key::kVolumePath, *mounts().mountPoint(disk));
    bus_.emit({Kind::descriptionChanged, disk, description, {key::kVolumePath}});
  }
}

void Machine::unplug(DiskId disk) {
  Dictionary last = std::move(find(disk));
  const bool wasHidden = hiddenPathVolumes_.erase(disk) > 0;
  disks_.erase(disk);
  pathVolumes_.erase(disk);
  ioRegistry_.forget(disk);
  fileSystem_.forget(disk);
  emitWithOthers(wasHidden ? std::nullopt
                           : std::optional(Event{Kind::disappeared, disk, std::move(last), {}}));
}

void Machine::mount(DiskId disk, const std::string& path) {
  requireDisk(disk);
  if (mounts().mountPoint(disk) != nullptr) fatal("the volume is mounted already");
  changeDescription(disk, {{key::kVolumePath, mountURL(path)}});
}

void Machine::unmount(DiskId disk) {
  requireDisk(disk);
  if (mounts().mountPoint(disk) == nullptr) fatal("the volume is not mounted");
  if (pathVolumes_.contains(disk)) return unplug(disk);
  if (!mounts().isReachable(disk)) {  // the end of its path was told when it was hidden
    items().unmount(disk);
    return emitWithOthers(std::nullopt);
  }
  changeDescription(disk, {{key::kVolumePath, std::nullopt}});
}

void Machine::move(DiskId disk, const std::string& newPath) {
  Dictionary& description = find(disk);
  const URL* const point = mounts().mountPoint(disk);
  if (point == nullptr) fatal("the volume is not mounted");
  if (point->path() == newPath) return;
  if (!mounts().isReachable(disk)) return changeDescription(disk, {{key::kVolumePath, mountURL(newPath)}});
  bus_.emit({Kind::disappeared, disk, description, {}, Event::Cause::move});
  description.set(key::kVolumePath, mountURL(newPath));
  followPath(disk, description);
  emitWithOthers(Event{Kind::appeared, disk, description, {}});
}

void Machine::rename(DiskId disk, const std::string& newName) {
  const Dictionary& description = find(disk);
  simulation::DescriptionChanges changes{{key::kVolumeName, newName}};
  const std::string* oldName = description.text(key::kVolumeName);
  const URL* const url = description.url(key::kVolumePath);
  if (oldName != nullptr && url != nullptr && mounts().isReachable(disk) &&
      url->path() == defaultMountPoint(*oldName)) {
    changes.emplace(key::kVolumePath, mountURL(defaultMountPoint(newName)));
  }
  changeDescription(disk, changes);
}

void Machine::changeDescription(DiskId disk, const simulation::DescriptionChanges& changes) {
  Dictionary& description = find(disk);
  Dictionary changed = description;
  apply(changes, changed);
  ChangedKeys keys = differingKeys(description, changed);
  if (keys.empty()) return;
  const bool changedPath = std::find(keys.begin(), keys.end(), key::kVolumePath) != keys.end();
  const bool replacedPath =
      changedPath && description.contains(key::kVolumePath) && changed.contains(key::kVolumePath);
  description = std::move(changed);
  if (changedPath) followPath(disk, description);
  std::optional<Event> event;  // none while sessions do not know of it
  if (disks_.contains(disk))
    event = {Kind::descriptionChanged, disk, description, std::move(keys),
             replacedPath ? Event::Cause::replacedPath : Event::Cause::ordinary};
  emitWithOthers(std::move(event));
  if (mounts().isReachable(disk)) bringPathBack(disk);  // from where it was hidden
}

std::unique_ptr<DiskArbitrationSession> Machine::makeDiskArbitrationSession() {
  scheduler_.requireOwnThread();
  auto state = std::make_shared<SessionState>([this](DiskId disk) {
    if (exists(disk)) unplug(disk);
  });
  bus_.add(state);
  return std::make_unique<SimulatedSession>(std::move(state), *this);
}

std::optional<Dictionary> Machine::presentDescription(DiskId disk) const {
  scheduler_.requireOwnThread();
  const auto found = disks_.find(disk);
  return found == disks_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<Dictionary> Machine::requestUnmount(DiskId disk) {
  if (auto refusal = refusalOf(disk, armedFaults().unmountRefusals)) return refusal;
  if (!mounts().isReachable(disk) || mounts().carriesMounts(disk))
    return Dictionary{{key::kDissenterStatus, dissent::kBusy}};
  unmount(disk);
  return std::nullopt;
}

std::optional<Dictionary> Machine::requestRename(DiskId disk, const std::string& newName) {
  if (auto refusal = refusalOf(disk, armedFaults().renameRefusals)) return refusal;
  if (!mounts().isReachable(disk)) return Dictionary{{key::kDissenterStatus, dissent::kNotMounted}};
  rename(disk, newName);
  return std::nullopt;
}

/// The next armed refusal, or the one of a disk that was unplugged or unmounted since the library looked it up.
std::optional<Dictionary> Machine::refusalOf(DiskId disk, std::deque<Dictionary>& armed) const {
  scheduler_.requireOwnThread();
  if (!armed.empty()) {
    Dictionary dissenter = std::move(armed.front());
    armed.pop_front();
    return dissenter;
  }
  if (mounts().mountPoint(disk) == nullptr) return Dictionary{{key::kDissenterStatus, dissent::kNotMounted}};
  return std::nullopt;
}

}  // namespace kmv::simulated
