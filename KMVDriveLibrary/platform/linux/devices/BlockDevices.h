// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/Value.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/devices/UdevRecord.h"
#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

/// What a device's first blocks say, as udev's database or a probe of the node tells it. Empty texts are
/// absent.
struct SignatureFacts {
  std::string type;           // "vfat"
  std::string usage;          // "filesystem", "raid", "crypto", "other"
  std::string version;        // "FAT32"
  std::string label;          // decoded
  std::string id;             // a UUID or what the type has in its place
  std::string tableType;      // "gpt", "dos"
  std::string partitionType;  // the type that the partition table gives this partition
  std::string partitionName;  // its label there
  std::string partitionId;    // its UUID there, or what stands in its place
  friend bool operator==(const SignatureFacts&, const SignatureFacts&) = default;
};

/// The unit of "size" in sysfs, whatever the device's own block is.
inline constexpr std::uint64_t kSectorBytes = 512;

/// One block device as sysfs and udev's database show it.
struct BlockDevice {
  DeviceNumber number;
  std::string name;          ///< the kernel's: "sda1"
  std::string node;          ///< below /dev: the name, with "/" where sysfs writes "!"
  DeviceNumber wholeNumber;  ///< its own when it is a whole disk
  std::string wholeNode;     ///< the same for the node
  bool whole = true;
  std::uint64_t offset = 0;  ///< of a partition: the bytes of its disk before it
  std::uint64_t bytes = 0;
  std::uint64_t mediumSequence = 0;  ///< of the whole disk; new with each medium; 0 before kernel 5.15
  std::int64_t unit = 0;
  bool ejectable = false;
  bool internal = true;
  std::string model;
  Dictionary hardwareFacts;  ///< parts of its description that are taken as they stand
  SignatureFacts facts;
  bool inDatabase = false;       ///< udev has a record, from which `facts` is
  bool reportUnmounted = true;   ///< false for what the system keeps to itself: a disk only while mounted
  bool hiddenFromUsers = false;  ///< udev says that it is the system's own
  std::uint64_t readAt = 0;      ///< the kernel's event count just before this was read; 0 when unknown
};

/// Reads block devices from sysfs and udev's database. Touches no device node. Any thread. Failure: throws
/// `NotReadable` when it cannot be known whether a device is there or what it is, since no descriptor is left, say.
class BlockDevices {
 public:
  explicit BlockDevices(const LinuxOptions& options);

  /// Every device that has a medium, ordered by name.
  std::vector<BlockDevice> list() const;

  /// The device of this number; none when it is not there or has no medium.
  std::optional<BlockDevice> read(DeviceNumber number) const;

  /// The device behind a mount: by its number, else by its source. Cost: one device, whatever else there is.
  std::optional<BlockDevice> readBehind(const MountEntry& mount) const;

 private:
  std::optional<BlockDevice> readFolder(const std::string& folder) const;
  std::optional<BlockDevice> readNamed(const std::string& name) const;
  std::string nameOfMapping(std::string_view mapping) const;
  UdevProperties readUdev(DeviceNumber number, bool& found) const;
  void readWholeDisk(const std::string& folder, BlockDevice& device) const;
  /// What a whole disk has for as long as it is there.
  struct Hardware {
    std::uint64_t mediumSequence = 0;
    Dictionary facts;
    bool isExternal = false;
  };
  Hardware hardwareOf(const std::string& folder, const BlockDevice& device) const;
  Hardware readHardware(const std::string& folder) const;

  std::string sysRoot_;
  std::string udevData_;

  mutable Mutex mutex_;
  mutable std::map<DeviceNumber, Hardware> hardware_ KMV_GUARDED_BY(mutex_);  // of whole disks
};

/// The facts that udev's properties of a device hold.
SignatureFacts factsOf(const UdevProperties& properties);

}  // namespace kmv
