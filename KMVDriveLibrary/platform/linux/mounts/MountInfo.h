// SPDX-License-Identifier: MIT
#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kmv {

/// A kernel device number. Major 0 is no block device but anonymous: allocated for one mounted file system.
struct DeviceNumber {
  std::uint32_t major = 0;
  std::uint32_t minor = 0;
  friend auto operator<=>(const DeviceNumber&, const DeviceNumber&) = default;
};

/// "MAJOR:MINOR", as /sys/dev/block and udev's database name it.
std::string toString(DeviceNumber number);
std::optional<DeviceNumber> parseDeviceNumber(std::string_view text);

/// One line of the mount table. Texts are decoded and may hold any byte but NUL.
struct MountEntry {
  std::uint64_t id = 0;      ///< no other mount has it now; later one may, unless the kernel tells unique ids
  std::uint64_t parent = 0;  ///< the id of the mount that it stands on; may be outside this table
  std::uint64_t reusedId = 0;  ///< as files of /proc and statx show it: reused at once after an unmount
  DeviceNumber device;         ///< of the file system; differs from `st_dev` on btrfs
  std::string root;            ///< the folder of the file system that is mounted; "/" for the whole of it
  std::string point;
  std::string kind;          ///< the kernel's type, with the subtype of FUSE: "ext4", "fuse.sshfs"
  std::string source;        ///< may be empty
  std::string superOptions;  ///< as written by the kernel, not decoded
  std::uint64_t order = 0;   ///< ascends along the table; given by whoever reads it
};

/// True when both describe the same mount at the same place: what a later read of the table may call
/// unchanged.
bool isSameMount(const MountEntry& a, const MountEntry& b);

/// Replaces each backslash that three octal digits follow by the byte they name.
std::string decodeOctal(std::string_view text);

/// One line without its line feed; none when it is no record.
std::optional<MountEntry> parseMountLine(std::string_view line);

/// The records of a whole mountinfo text, in its order, which `order` counts from 1. A record whose id
/// occurred before is dropped.
std::vector<MountEntry> parseMountInfo(std::string_view text);

/// The value of `name` in a comma-separated option list ("subvol" in "rw,subvol=/@"), not decoded; none when
/// absent.
std::optional<std::string_view> mountOption(std::string_view options, std::string_view name);

}  // namespace kmv
