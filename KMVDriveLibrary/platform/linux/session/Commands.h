// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DissentStatus.h>
#include <KMVDriveLibrary/Value.h>

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/mounts/MountTable.h"

namespace kmv {

/// The outcome of a command: none when it succeeded, else the dissenter's record: its status and, when a
/// process is known that holds the volume, that process.
using Dissent = std::optional<Dictionary>;

namespace dissent {

inline constexpr std::int32_t kDone = 0;  // no dissent at all; in no record

/// The status that an error number of the kernel stands for.
std::int32_t ofError(int error);
/// The status that the name of a D-Bus error stands for.
std::int32_t ofErrorName(std::string_view name);

}  // namespace dissent

/// The volume that a command is about, as the mount table showed it.
struct TargetVolume {
  std::string mountPoint;
  std::string kind;        ///< "ext4", "fuse.sshfs"
  std::string deviceNode;  ///< "/dev/sda1"; empty without a device
  /// As statx shows it: the command is refused when another mount has its place.
  std::uint64_t mountId = 0;
  DeviceNumber device;
};

TargetVolume targetOf(const MountEntry& mount);

/// Unmounts and renames volumes of the mount table. Both block for as long as the medium needs to be written,
/// or a user to be asked for a password: for a worker's thread. Threads: any.
class Commands {
 public:
  Commands(LinuxOptions options, std::shared_ptr<MountTable> mounts);

  /// Unmounts the volume cleanly or not at all: neither by force nor lazily.
  Dissent unmount(const TargetVolume& volume) const;

  /// Gives the mounted volume a new name on its medium. The mount point stays. A name that the file system
  /// cannot hold whole is refused.
  Dissent rename(const TargetVolume& volume, const std::string& newName) const;

 private:
  enum class Place { mounted, covered, gone, unknown };
  struct Look {
    Place place = Place::gone;
    MountEntry entry;
  };

  Look lookFor(const TargetVolume& volume) const;
  std::int32_t unmountDirectly(const TargetVolume& volume) const;
  std::int32_t unmountWithHelp(const TargetVolume& volume, const MountEntry& entry) const;
  std::int32_t renameByKernel(const TargetVolume& volume, const std::string& name) const;

  const LinuxOptions options_;
  const std::shared_ptr<MountTable> mounts_;
};

}  // namespace kmv
