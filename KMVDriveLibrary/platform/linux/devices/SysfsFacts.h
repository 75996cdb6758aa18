// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <span>
#include <string>
#include <string_view>

namespace kmv {

/// A key of a disk's description whose value is one attribute of sysfs as it stands.
struct SysfsFact {
  enum class Of { device, wholeDisk };
  enum class Kind {
    text,     ///< absent when empty, and for a number in place of a name ("0x1af4")
    integer,  ///< absent when it is no decimal number
    boolean,  ///< absent when it is neither "0" nor "1"
    denial,   ///< a boolean that says the opposite
    flag,     ///< true for "1", else false: a key that every description has
  };
  const char* key;             ///< of DescriptionKeys.h
  std::string_view attribute;  ///< below that folder
  Of of;                       ///< whose folder has the attribute; a partition's own has few
  Kind kind;
};

/// The facts of this backend: a new one is one line in a table.
std::span<const SysfsFact> sysfsFacts();
/// Those of the hardware, which last as long as the disk and need not be read again.
std::span<const SysfsFact> lastingSysfsFacts();

/// Reads `facts` from the folders of a device and of its whole disk (the same for one that is whole).
Dictionary readSysfsFacts(std::span<const SysfsFact> facts, const std::string& device,
                          const std::string& wholeDisk);

}  // namespace kmv
