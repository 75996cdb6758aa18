// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <string>
#include <vector>

// Extended attributes of files and folders by the system's own calls; no tool is run, whatever bytes the value has.
// `KMVExtendedAttributeGatherer` has the operations of the library's contract, some of which run one.
// Paths are absolute; links are followed. Names are those of the library: on Linux "x" is "user.x".
// Threads: any; each call waits for the volume.

namespace kmv {

enum class AttributeError {
  none,
  noItem,       ///< nothing is at the path
  noAttribute,  ///< the item has none of this name
  refused,      ///< the system refused, or the volume has no attributes
};

struct AttributeNames {
  AttributeError error = AttributeError::none;
  std::vector<std::string> names;  ///< in ascending order
};
[[nodiscard]] KMV_EXPORT AttributeNames attributeNames(const std::string& path);

struct AttributeValue {
  AttributeError error = AttributeError::none;
  std::string bytes;
};
[[nodiscard]] KMV_EXPORT AttributeValue attributeValue(const std::string& path, const std::string& name);

/// Replaces an earlier value.
[[nodiscard]] KMV_EXPORT AttributeError setAttributeValue(const std::string& path, const std::string& name,
                                                          const std::string& bytes);

}  // namespace kmv
