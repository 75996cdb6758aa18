// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DissentStatus.h>
#include <KMVDriveLibrary/Value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

/// What a command came to: none when it succeeded, else the dissenter's record: its status and, when a
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
  std::string kind;           ///< "ext4", "fuse.sshfs"
  std::string deviceNode;     ///< "/dev/sda1"; empty without a device
  std::uint64_t mountId = 0;  ///< of the mount table: the command is refused when another mount has its place
  DeviceNumber device;
};

/// Takes the volume away, in good order or not at all: neither by force nor only from sight. Blocks for as
/// long as the medium needs to be written, or a user to be asked for a password: for a worker's thread.
Dissent unmountVolume(const LinuxOptions& options, const TargetVolume& volume);

/// Gives the mounted volume a new name on its medium. The mount point stays. A name that the file system
/// cannot hold whole is refused. Blocks as above.
Dissent renameVolume(const LinuxOptions& options, const TargetVolume& volume, const std::string& newName);

}  // namespace kmv
