// SPDX-License-Identifier: MIT
#include "platform/linux/session/DiskModel.h"

#include <algorithm>
#include <utility>

#include "platform/linux/devices/Description.h"
#include "platform/linux/mounts/VolumeRules.h"
#include "platform/posix/SystemFiles.h"

namespace kmv {

/// A device, or a mounted file system without one, with everything mounted from it.
struct DiskModel::Storage {
  StorageKey key;
  std::optional<BlockDevice> device;
  std::optional<SignatureFacts> probed;  // newer than the device's own
  std::map<InstanceKey, MountEntry> mounts;
  std::set<SuperblockKey> superblocks;
  std::vector<AnnouncedDisk> disks;
  std::map<InstanceKey, double> moving;  // appearance times of disks between their old path and their new one

  bool reportsUnmounted() const { return device && device->reportUnmounted; }
};

DiskModel::DiskModel(Outside outside) : outside_(std::move(outside)), tree_(outside_.isDirectory) {}
DiskModel::~DiskModel() = default;

DiskModel::Storage& DiskModel::storageFor(const StorageKey& key) {
  Storage& storage = storages_[key];
  storage.key = key;
  dirty_.insert(key);
  return storage;
}

void DiskModel::deviceSeen(BlockDevice device, bool isRecordCurrent) {
  forgetMedium(device, nullptr);
  Storage& storage = storageFor(keyOf(device.number));
  const bool probe = !(isRecordCurrent && device.inDatabase);
  if (!probe) {
    storage.probed.reset();
    probes_.forget(device.number);
  }
  setDevice(storage, std::move(device), probe);
}

void DiskModel::setDevice(Storage& storage, BlockDevice device, bool probe) {
  if (!device.whole) partitions_[device.wholeNumber].insert(device.number);
  if (startingUp_ && device.inDatabase) probe = false;
  if (probe && outside_.probing) probes_.want(device.number);
  storage.device = std::move(device);
}

/// A device that came back with another medium was away in between, and so were the old one's partitions.
void DiskModel::forgetMedium(const BlockDevice& newer, const SuperblockKey* stays) {
  const auto found = storages_.find(keyOf(newer.number));
  if (found == storages_.end() || !found->second.device) return;
  const std::uint64_t old = found->second.device->mediumSequence;
  if (old == newer.mediumSequence) return;
  std::set<DeviceNumber> partitions;
  if (const auto parts = partitions_.find(newer.number); parts != partitions_.end())
    partitions = parts->second;
  for (const DeviceNumber number : partitions) {
    const auto part = storages_.find(keyOf(number));
    if (part != storages_.end() && part->second.device->mediumSequence == old) forget(part->first, nullptr);
  }
  forget(keyOf(newer.number), stays);
}

void DiskModel::deviceRemoved(DeviceNumber number) {
  const auto found = storages_.find(keyOf(number));
  if (found == storages_.end() || !found->second.device) return;
  if (const auto parts = partitions_.find(number); parts != partitions_.end()) {
    const std::set<DeviceNumber> gone = std::move(parts->second);
    partitions_.erase(parts);
    for (const DeviceNumber part : gone) forget(keyOf(part), nullptr);
  }
  forget(keyOf(number), nullptr);
}

void DiskModel::deviceRemovedAt(DeviceNumber number, std::uint64_t sequence) {
  const auto found = storages_.find(keyOf(number));
  if (found == storages_.end() || !found->second.device) return;
  const std::uint64_t readAt = found->second.device->readAt;
  if (sequence == 0 || readAt < sequence) deviceRemoved(number);
}

void DiskModel::devicesListed(std::vector<BlockDevice> devices, bool isRecordCurrent) {
  std::set<DeviceNumber> gone;
  for (const auto& [key, storage] : storages_) {
    if (storage.device) gone.insert(key.device);
  }
  for (const BlockDevice& device : devices) gone.erase(device.number);
  for (const DeviceNumber number : gone) deviceRemoved(number);
  for (BlockDevice& device : devices) deviceSeen(std::move(device), isRecordCurrent);
}

/// Announces the end of everything on a storage, with paths as they were. Its mounts outlive it, and their
/// own end says nothing new; only those of `stays` are looked at again.
void DiskModel::forget(const StorageKey& key, const SuperblockKey* stays) {
  const auto found = storages_.find(key);
  if (found == storages_.end()) return;
  Storage& storage = found->second;
  for (const AnnouncedDisk& disk : storage.disks) announcements_.disappeared(disk);
  // Those mounts too that something hides at the moment.
  if (storage.device) storage.superblocks.insert(key);
  for (const SuperblockKey& superblock : storage.superblocks) {
    if (stays != nullptr && superblock == *stays) continue;
    tree_.retire(superblock);
    bindings_.erase(superblock);
    unread_.erase(superblock);
  }
  if (storage.device && !storage.device->whole) {
    const auto siblings = partitions_.find(storage.device->wholeNumber);
    if (siblings != partitions_.end()) siblings->second.erase(storage.device->number);
    if (siblings != partitions_.end() && siblings->second.empty()) partitions_.erase(siblings);
  }
  if (storage.device) probes_.forget(storage.device->number);
  dirty_.erase(key);
  storages_.erase(found);
}

void DiskModel::mountsChanged(const MountDelta& delta) {
  if (delta.empty()) return;
  const std::vector<VolumeChange> changes = tree_.apply(delta);
  std::map<SuperblockKey, std::vector<const VolumeChange*>> bySuperblock;
  for (const VolumeChange& change : changes) bySuperblock[change.instance.superblock].push_back(&change);
  for (const auto& [superblock, its] : bySuperblock) updateBinding(superblock, its);
}

void DiskModel::updateBinding(const SuperblockKey& superblock,
                              const std::vector<const VolumeChange*>& changes) {
  const bool bound = bindings_.contains(superblock);
  const bool anyMount = std::any_of(changes.begin(), changes.end(),
                                    [](const auto* change) { return change->mount.has_value(); });
  if (!bound && !anyMount) return;  // nothing of it was a volume, or its device is gone
  Binding& binding = bindings_[superblock];
  for (const VolumeChange* change : changes) {
    if (change->mount) {
      binding.mounts.insert_or_assign(change->instance.root, *change->mount);
    } else {
      binding.mounts.erase(change->instance.root);
    }
  }
  const bool stayed = tree_.wasMountedThroughout(superblock);
  if (!binding.mounts.empty() && !(bound && stayed)) bind(superblock, binding, bound, /*probe=*/!stayed);
  Storage& storage = storageFor(binding.storage);
  for (const VolumeChange* change : changes) {
    if (change->mount) {
      storage.mounts.insert_or_assign(change->instance, *change->mount);
    } else {
      storage.mounts.erase(change->instance);
    }
  }
  if (binding.mounts.empty()) unbind(superblock);
}

/// Looks at the device again: anything could have happened to it, even if its events are still under way.
void DiskModel::bind(const SuperblockKey& superblock, Binding& binding, bool wasBound, bool probe) {
  if (wasBound) release(superblock, binding);
  auto device = deviceBehind(superblock, binding.mounts.begin()->second);
  if (device) forgetMedium(*device, &superblock);
  binding.storage = device ? keyOf(device->number) : superblock;
  Storage& storage = storageFor(binding.storage);
  storage.superblocks.insert(superblock);
  if (device) setDevice(storage, std::move(*device), probe);
}

/// Takes away what was mounted under a number that now belongs to another file system, or to the same again.
void DiskModel::release(const SuperblockKey& superblock, const Binding& binding) {
  const auto found = storages_.find(binding.storage);
  if (found == storages_.end()) return;
  if (!found->second.device) return forget(found->first, &superblock);
  Storage& storage = storageFor(binding.storage);
  storage.superblocks.erase(superblock);
  std::erase_if(storage.mounts, [&](const auto& entry) { return entry.first.superblock == superblock; });
}

std::optional<BlockDevice> DiskModel::deviceBehind(const SuperblockKey& superblock, const MountEntry& mount) {
  unread_.erase(superblock);
  if (!isBlockBacked(mount)) return std::nullopt;
  const auto found = storages_.find(keyOf(mount.device));
  auto known = found == storages_.end() ? std::nullopt : found->second.device;
  // At the start all devices were read a moment ago.
  if (startingUp_ && known) return known;
  try {
    return outside_.deviceBehind(mount);
  } catch (const NotReadable&) {
    unread_.insert(superblock);
    return known;
  }
}

void DiskModel::readAgain() {
  for (const SuperblockKey& superblock : std::set(unread_)) {
    Binding& binding = bindings_.at(superblock);
    bind(superblock, binding, /*wasBound=*/true, /*probe=*/true);
    Storage& storage = storageFor(binding.storage);
    for (const auto& [root, mount] : binding.mounts)
      storage.mounts.insert_or_assign(InstanceKey{superblock, root}, mount);
  }
}

bool DiskModel::isUnanswered(const Storage& storage) const {
  return storage.device && probes_.isUnanswered(storage.device->number);
}

/// Nothing new is told of a storage while its identity is being found out.
bool DiskModel::isWithheld(const Storage& storage) const {
  const bool awaitsProbe = storage.device && probes_.isAwaited(storage.device->number);
  return awaitsProbe || std::any_of(storage.superblocks.begin(), storage.superblocks.end(),
                                    [&](const auto& key) { return unread_.contains(key); });
}

void DiskModel::unbind(const SuperblockKey& superblock) {
  const auto binding = bindings_.find(superblock);
  if (const auto storage = storages_.find(binding->second.storage); storage != storages_.end()) {
    storage->second.superblocks.erase(superblock);
  }
  unread_.erase(superblock);
  bindings_.erase(binding);
}

std::vector<ProbeRequest> DiskModel::takeProbeRequests() {
  std::vector<ProbeRequest> requests;
  for (const auto& [number, ticket] : probes_.takeWanted()) {
    const Storage& storage = storages_.at(keyOf(number));
    const std::string kind = storage.mounts.empty() ? std::string() : storage.mounts.begin()->second.kind;
    requests.push_back({*storage.device, kind, ticket});
  }
  return requests;
}

void DiskModel::probeFinished(DeviceNumber number, std::uint64_t ticket,
                              std::optional<SignatureFacts> facts) {
  if (!probes_.finished(number, ticket)) return;
  Storage& storage = storageFor(keyOf(number));
  if (facts && facts->partitionType.empty()) facts->partitionType = storage.device->facts.partitionType;
  storage.probed = std::move(facts);
}

void DiskModel::probeDeferred(DeviceNumber number, std::uint64_t ticket, Clock::time_point now) {
  probes_.deferred(number, ticket, now);
}

std::vector<DiskEvent> DiskModel::settle(Clock::time_point now) {
  for (const DeviceNumber number : probes_.passDeadlines(now)) storageFor(keyOf(number));
  std::vector<StorageKey> ready;
  for (const StorageKey& key : std::exchange(dirty_, {})) {
    Storage& storage = storages_.at(key);
    const bool withheld = isWithheld(storage);
    if (storage.device && probes_.isAwaited(storage.device->number))
      probes_.await(storage.device->number, now);
    tellLosses(storage, withheld);
    if (!withheld) ready.push_back(key);
  }
  for (const StorageKey& key : ready) {
    Storage& storage = storages_.at(key);
    tellGains(storage);
    if (!storage.device && storage.mounts.empty()) storages_.erase(key);
  }
  return announcements_.take();
}

void DiskModel::tellLosses(Storage& storage, bool withheld) {
  const bool keepsUnmounted = storage.reportsUnmounted() || !storage.mounts.empty();
  for (std::size_t i = 0; i < storage.disks.size();) {
    const AnnouncedDisk& disk = storage.disks[i];
    const auto mount = disk.instance ? storage.mounts.find(*disk.instance) : storage.mounts.end();
    const bool isInPlace = mount != storage.mounts.end() && mount->second.point == disk.point;
    const std::size_t before = storage.disks.size();
    if (disk.instance ? !isInPlace : !keepsUnmounted) tellLoss(storage, i, withheld);
    if (storage.disks.size() == before) ++i;
  }
}

/// A disk whose path or device is gone: it stays as the unmounted disk of its device, or leaves the list.
void DiskModel::tellLoss(Storage& storage, std::size_t index, bool withheld) {
  AnnouncedDisk& disk = storage.disks[index];
  const bool isMounted = disk.instance && storage.mounts.contains(*disk.instance);
  const bool moves = isMounted && !withheld;
  if (disk.instance && !moves && storage.disks.size() == 1 && storage.reportsUnmounted()) {
    disk.instance.reset();
    disk.point.clear();
    tellChange(storage, disk, nullptr);
    return;
  }
  // Hosts know a mounted drive by its path: one that moves leaves and comes.
  if (isMounted) storage.moving.insert_or_assign(*disk.instance, disk.appearanceTime);
  announcements_.disappeared(disk);
  storage.disks.erase(storage.disks.begin() + static_cast<std::ptrdiff_t>(index));
}

void DiskModel::tellGains(Storage& storage) {
  for (const auto& [instance, mount] : storage.mounts) {
    const auto disk = std::find_if(storage.disks.begin(), storage.disks.end(),
                                   [&key = instance](const AnnouncedDisk& candidate) {
                                     return !candidate.instance || *candidate.instance == key;
                                   });
    if (disk == storage.disks.end()) {
      tellAppeared(storage, &instance, &mount);
      continue;
    }
    disk->instance = instance;
    disk->point = mount.point;
    tellChange(storage, *disk, &mount);
  }
  storage.moving.clear();
  if (!storage.mounts.empty() || !storage.reportsUnmounted()) return;
  if (storage.disks.empty()) {
    tellAppeared(storage, nullptr, nullptr);
  } else {
    tellChange(storage, storage.disks.front(), nullptr);
  }
}

void DiskModel::tellChange(const Storage& storage, AnnouncedDisk& disk, const MountEntry* mount) {
  announcements_.changed(disk, describe(storage, mount, disk.appearanceTime), mount);
  disk.isProvisional = isUnanswered(storage);
}

void DiskModel::tellAppeared(Storage& storage, const InstanceKey* instance, const MountEntry* mount) {
  AnnouncedDisk disk;
  const auto moved = instance == nullptr ? storage.moving.end() : storage.moving.find(*instance);
  disk.appearanceTime = moved == storage.moving.end() ? outside_.nextAppearanceTime() : moved->second;
  if (instance != nullptr) disk.instance = *instance;
  if (mount != nullptr) disk.point = mount->point;
  disk.isProvisional = isUnanswered(storage);
  announcements_.appeared(disk, describe(storage, mount, disk.appearanceTime), mount);
  storage.disks.push_back(std::move(disk));
}

bool DiskModel::isAwaitedAt(const std::string& point) const {
  const std::vector<DeviceNumber> awaited = probes_.awaited();
  return std::any_of(awaited.begin(), awaited.end(), [&](DeviceNumber number) {
    const auto& mounts = storages_.at(keyOf(number)).mounts;
    return std::any_of(mounts.begin(), mounts.end(),
                       [&](const auto& mount) { return mount.second.point == point; });
  });
}

Dictionary DiskModel::describe(const Storage& storage, const MountEntry* mount, double appearanceTime) const {
  if (!storage.device) return describeDisk(nullptr, mount, appearanceTime);
  if (!storage.probed) return describeDisk(&*storage.device, mount, appearanceTime);
  BlockDevice probed = *storage.device;
  probed.facts = *storage.probed;
  return describeDisk(&probed, mount, appearanceTime);
}

}  // namespace kmv
