// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/KMVDiskBSDBaseWrapper.h>

/// A whole disk or a partition, but not an APFS volume.
class KMV_EXPORT KMVVolumePartitionWrapper : public KMVDiskBSDBaseWrapper {
 public:
  /// Selector: initWithDictionary:withRootVolumeWrapper:
  using KMVDiskBSDBaseWrapper::KMVDiskBSDBaseWrapper;
  ~KMVVolumePartitionWrapper() override;
};
