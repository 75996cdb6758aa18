// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <sys/types.h>

#include <cstdint>
#include <ctime>
#include <optional>
#include <string>

namespace kmv {

/// What a system tells of one item. Systems name the fields differently, times above all.
struct ItemStatus {
  mode_t mode = 0;
  std::uint64_t size = 0;
  std::uint64_t links = 0;
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  uid_t owner = 0;
  gid_t group = 0;
  timespec modified = {};
  std::optional<timespec> created;
};

/// See `Files::attributesOfItem`. Waits for the volume.
std::optional<Dictionary> attributesOfItemAt(const std::string& path);

/// Hook of each system's folder: the item itself, a link not followed; none when there is no such item.
std::optional<ItemStatus> statusOfItem(const std::string& path);

}  // namespace kmv
