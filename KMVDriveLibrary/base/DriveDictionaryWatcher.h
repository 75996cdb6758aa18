// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DriveDictionary.h>

namespace kmv {

/// Is told when the content of a drive dictionary was replaced.
class DriveDictionary::Watcher {
 public:
  virtual ~Watcher() = default;
  /// On the thread that made the change, after it, outside the dictionary's lock.
  virtual void contentsChanged(const DriveDictionary* drive) = 0;
};

}  // namespace kmv
