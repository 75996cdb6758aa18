// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/linux/devices/BlockDevices.h"
#include "platform/linux/devices/Probe.h"
#include "platform/linux/mounts/MountTree.h"
#include "platform/linux/session/DiskAnnouncements.h"
#include "platform/linux/session/ProbeSchedule.h"

namespace kmv {

/// Which disks there are, from two sources that know nothing of each other: devices and mounts.
///
/// A device with nothing mounted is one disk without a path. Each volume mounted from it is one; the first
/// takes over the unmounted disk, the last leaves it behind. A mount without a device is a disk while it is
/// mounted.
///
/// Inputs change the model only; `settle` tells the difference to what was told before. Within one `settle`
/// whatever leaves a path comes before whatever takes one, since a path can change hands. Thread: one at a
/// time. Makes no system call.
class DiskModel {
 public:
  using Clock = ProbeSchedule::Clock;

  /// What the model asks others. Each is called at most a few times for each difference that concerns it.
  struct Outside {
    /// None: not visible from here. Throws `NotReadable` when that cannot be known now.
    std::function<std::optional<BlockDevice>(const MountEntry&)> deviceBehind;
    MountTree::IsDirectory isDirectory;
    std::function<double()> nextAppearanceTime;  ///< never the same twice
    bool probing = true;
  };

  explicit DiskModel(Outside outside);
  ~DiskModel();

  /// A device that is there now: new, changed or as it was. It is probed unless udev's record of it is up to date.
  void deviceSeen(BlockDevice device, bool isRecordCurrent = false);
  /// A device that is gone, or has no medium any more; its partitions go with it.
  void deviceRemoved(DeviceNumber number);
  /// The removal that the kernel counted as event `sequence`; nothing happens when the device was seen after
  /// it.
  void deviceRemovedAt(DeviceNumber number, std::uint64_t sequence);
  /// All devices that are there now, when events were lost.
  void devicesListed(std::vector<BlockDevice> devices, bool isRecordCurrent = false);

  void mountsChanged(const MountDelta& delta);

  /// The answer to a probe request; none when the node could not be read.
  void probeFinished(DeviceNumber number, std::uint64_t ticket, std::optional<SignatureFacts> facts);
  /// The probe was not possible yet: it is asked for again after a while.
  void probeDeferred(DeviceNumber number, std::uint64_t ticket, Clock::time_point now);

  /// True while a mounted volume is withheld since the device behind it could not be read.
  bool hasUnread() const { return !unread_.empty(); }
  /// Reads the devices behind those volumes again.
  void readAgain();

  /// From now on a device that is seen is probed even when udev knows it: its record may be older than the
  /// medium's content.
  void startUpFinished() { startingUp_ = false; }

  std::vector<DiskEvent> settle(Clock::time_point now);

  /// The drive mounted exactly at `point`; null when none was told. Valid until the next `settle`.
  const MountedDisk* diskAt(const std::string& point) const { return announcements_.diskAt(point); }
  /// True when a volume is mounted at `point` that will be told as soon as its device is identified.
  bool isAwaitedAt(const std::string& point) const;

  /// The devices whose disks wait for their identification.
  std::vector<DeviceNumber> awaitedDevices() const { return probes_.awaited(); }

  /// The probes to be started; each is handed out once. After `settle`.
  std::vector<ProbeRequest> takeProbeRequests();

  /// When `settle` is to be called again though nothing happened; none mostly.
  std::optional<Clock::time_point> nextDeadline() const { return probes_.nextDeadline(); }

 private:
  struct Storage;
  /// A device's number, or the file system's key where it has no device.
  using StorageKey = SuperblockKey;
  struct Binding {
    StorageKey storage;
    std::map<std::string, MountEntry> mounts;  // by root
  };

  static StorageKey keyOf(DeviceNumber number) { return {number, {}}; }
  Storage& storageFor(const StorageKey& key);
  void updateBinding(const SuperblockKey& superblock, const std::vector<const VolumeChange*>& changes);
  void bind(const SuperblockKey& superblock, Binding& binding, bool wasBound, bool probe);
  bool isWithheld(const Storage& storage) const;
  bool isUnanswered(const Storage& storage) const;
  void release(const SuperblockKey& superblock, const Binding& binding);
  std::optional<BlockDevice> deviceBehind(const SuperblockKey& superblock, const MountEntry& mount);
  void unbind(const SuperblockKey& superblock);
  void forgetMedium(const BlockDevice& newer, const SuperblockKey* stays);
  void forget(const StorageKey& key, const SuperblockKey* stays);
  void setDevice(Storage& storage, BlockDevice device, bool probe);

  void tellLosses(Storage& storage, bool withheld);
  void tellGains(Storage& storage);
  void tellLoss(Storage& storage, std::size_t index, bool withheld);
  void tellChange(const Storage& storage, AnnouncedDisk& disk, const MountEntry* mount);
  void tellAppeared(Storage& storage, const InstanceKey* instance, const MountEntry* mount);
  Dictionary describe(const Storage& storage, const MountEntry* mount, double appearanceTime) const;

  Outside outside_;
  MountTree tree_;
  bool startingUp_ = true;
  std::map<StorageKey, Storage> storages_;
  std::map<SuperblockKey, Binding> bindings_;
  std::map<DeviceNumber, std::set<DeviceNumber>> partitions_;  // by whole disk
  std::set<StorageKey> dirty_;
  std::set<SuperblockKey> unread_;  // the device behind them could not be read
  ProbeSchedule probes_;
  DiskAnnouncements announcements_;
};

}  // namespace kmv
