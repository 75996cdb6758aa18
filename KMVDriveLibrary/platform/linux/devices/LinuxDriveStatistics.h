// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "platform/DriveStatistics.h"
#include "platform/linux/LinuxOptions.h"
#include "platform/linux/devices/BlockDevices.h"
#include "platform/linux/devices/BlockStatistics.h"
#include "platform/linux/devices/PhysicalDisks.h"
#include "platform/linux/mounts/MountTable.h"
#include "platform/posix/FileDescriptor.h"

namespace kmv {

/// Counts the whole disks right below the mounted volumes: a loop device or mapping is one, what it stands on
/// is not asked.
///
/// Places in the "registry" are sysfs paths that end in "/", so that loop1 is not a prefix of loop10. A btrfs
/// over several devices is a driver of its own, with the sum of their disks. The mount table is looked at
/// again only after a change, and the devices behind its volumes only when volumes came or went; in between a
/// look costs a poll and one read a disk, or one of /proc/diskstats where that is cheaper or where so many files, kept
/// open, would take too many of the host's descriptors. Failure: without descriptors the disks and volumes stay those
/// of the last look.
class LinuxDriveStatistics final : public DriveStatisticsReader {
 public:
  LinuxDriveStatistics(const LinuxOptions& options, const std::shared_ptr<MountTable>& mounts);
  ~LinuxDriveStatistics() override;

  void read(std::uint32_t port, DriveStatistics& statistics) override;

 private:
  /// A whole disk that is counted.
  struct Disk {
    DeviceNumber number;
    FileDescriptor file;  // its "stat" in sysfs, while those are read
    std::optional<BlockStatistics> counted;
  };
  /// What a mount stands on.
  struct Medium {
    std::string driverPath;  // empty: nothing that is counted
    std::string mediaPath;
    std::vector<std::string> disks;  // names of whole disks
    bool isHidden = false;
    bool mayGrow = false;  // devices can join the file system: to be looked up again with every change
  };
  struct Plan {
    std::string path;
    std::vector<std::string> disks;
  };

  void followMounts();
  void planDrivers(const std::vector<MountEntry>& mounted);
  const Medium& mediumOf(const MountEntry& mount);
  Medium mediumBehind(const MountEntry& mount) const;
  std::vector<Plan> physicalDisksBelow(const std::vector<Plan>& drivers) const;
  void chooseDisks(const std::vector<Plan>& drivers);
  std::string statFileOf(const std::string& disk) const;
  void countDisks();
  void countFromFiles();
  void countFromTable();
  std::optional<DriverCounters> sumOf(const Plan& driver) const;

  const LinuxOptions options_;
  BlockDevices devices_;
  PhysicalDisks stacks_;
  MountFollower mounts_;
  std::optional<std::uint64_t> planned_;  // the generation of the tree's volumes that the plan is for
  std::uint64_t generation_ = 0;
  std::unordered_map<std::uint64_t, Medium> media_;  // by mount id
  std::vector<DriveStatistics::Volume> volumes_;
  std::vector<Plan> drivers_;        // ascending by path
  std::vector<Plan> physicalDisks_;  // when they are asked for
  bool countsPhysicalDisks_ = false;
  std::map<std::string, Disk> disks_;
  bool countsFromTable_ = false;
  FileDescriptor table_;  // /proc/diskstats, while it is read
  std::string text_;      // of it
};

}  // namespace kmv
