// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/MountInfo.h"

namespace kmv {

/// What a command came to: none when it succeeded, else the dissenter's record with "DAStatus" and, when a
/// process is known that holds the volume, "DAProcessID".
using Dissent = std::optional<Dictionary>;

namespace dissent {

inline constexpr char kStatus[] = "DAStatus";        // integer, one of those below
inline constexpr char kProcessID[] = "DAProcessID";  // integer; absent when no process is known

/// The numbers of the platform that the vocabulary comes from: negative as signed 32-bit values.
constexpr std::int32_t code(std::uint32_t number) {
  return static_cast<std::int32_t>(0xF8DA0000U | number);
}
inline constexpr std::int32_t kDone = 0;  // no dissent at all; in no record
inline constexpr std::int32_t kError = code(1);
inline constexpr std::int32_t kBusy = code(2);
inline constexpr std::int32_t kBadArgument = code(3);
inline constexpr std::int32_t kNotFound = code(6);
inline constexpr std::int32_t kNotMounted = code(7);
inline constexpr std::int32_t kNotPermitted = code(8);
inline constexpr std::int32_t kNotPrivileged = code(9);
inline constexpr std::int32_t kNotWritable = code(0xB);
inline constexpr std::int32_t kUnsupported = code(0xC);

/// The status that an error number of the kernel stands for.
std::int32_t ofError(int error);
/// The status that the name of a D-Bus error stands for.
std::int32_t ofErrorName(std::string_view name);

}  // namespace dissent

/// The volume that a command is about, as the mount table showed it.
struct VolumeToUnmount {
  std::string mountPoint;
  std::string kind;           ///< "ext4", "fuse.sshfs"
  std::string deviceNode;     ///< "/dev/sda1"; empty without a device
  std::uint64_t mountId = 0;  ///< of the mount table: the command is refused when another mount has its place
  DeviceNumber device;
};

/// Takes the volume away, in good order or not at all: neither by force nor only from sight. Blocks for as
/// long as the medium needs to be written, or a user to be asked for a password: for a worker's thread.
Dissent unmountVolume(const LinuxOptions& options, const VolumeToUnmount& volume);

/// Gives the mounted volume a new name on its medium. The mount point stays. A name that the file system
/// cannot hold whole is refused. Blocks as above.
Dissent renameVolume(const LinuxOptions& options, const VolumeToUnmount& volume, const std::string& newName);

}  // namespace kmv
