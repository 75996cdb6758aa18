// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DriveDictionary.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

#include <memory>

/// A component that enriches drive dictionaries.
/// Register it with `KMVDiskArbiter::addAdditionalInformationListener`.
///
/// Queue:   called on the arbiter queue, outside the registry's locks.
///          Must not call anything that waits for that queue (deadlock).
/// Results: ignored by the registry.
class KMV_EXPORT KMVDiskAdditionalInformationProtocol {
 public:
  virtual ~KMVDiskAdditionalInformationProtocol() = default;

  /// A mounted volume was registered and is about to be announced: keys added to `drive` now are there when
  /// observers of the announcement look.
  /// Not called again for renames, removals or changes of the UUID.
  /// Selector: addInformationAboutDiskDictionary:
  virtual bool addInformationAboutDiskDictionary(const std::shared_ptr<kmv::DriveDictionary>& drive) = 0;

  /// A disk that could be mounted, but is not, was found.
  /// `description` is a copy made for the listeners alone.
  /// What they add to it is discarded: intended.
  /// The registry keeps the bare description.
  /// Selector: addInformationAboutUnmountedDiskDictionary: (optional; the default does nothing)
  virtual bool addInformationAboutUnmountedDiskDictionary(
      const std::shared_ptr<kmv::DriveDictionary>& description) {
    (void)description;
    return false;
  }
};
