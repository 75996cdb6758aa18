// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/linux/mounts/MountTree.h"

namespace kmv {

/// What the session's callbacks are to be told.
struct DiskEvent {
  enum class Kind { appeared, changed, disappeared };
  Kind kind;
  Dictionary description;
  ChangedKeys changedKeys;  ///< of `changed` only
};

/// One announced disk.
struct AnnouncedDisk {
  double appearanceTime = 0;
  std::optional<InstanceKey> instance;  ///< what is mounted; none for the unmounted disk of a device
  std::string point;
  bool isProvisional = false;  ///< its probe had not answered when it was announced
  Dictionary told;             ///< as last announced
  Dictionary baseline;         ///< as at its last event that brought or took a path
};

/// A drive as it was last told, and the mount by which it is known.
struct MountedDisk {
  Dictionary description;
  MountEntry mount;
};

/// Collects the events of a model, and knows which drive was told at which mount point. `mount` is null for a
/// disk without a path. Thread: one at a time.
class DiskAnnouncements {
 public:
  void appeared(AnnouncedDisk& disk, Dictionary description, const MountEntry* mount);
  /// Nothing is told when the description is as it was. By the library's contract the registry ignores a change that
  /// neither brings nor takes a path, and one of a disk that it did not list since it was not mountable. Where that
  /// would keep an identity from hosts for ever, the disk disappears and appears instead, with its appearance time:
  /// one without a path, of which hosts hear nothing, and one that was announced provisionally.
  void changed(AnnouncedDisk& disk, Dictionary description, const MountEntry* mount);
  void disappeared(const AnnouncedDisk& disk);

  std::vector<DiskEvent> take();

  /// The drive mounted exactly at `point`; null when none was told. Valid until the next event.
  const MountedDisk* diskAt(const std::string& point) const;

 private:
  static bool isToReappear(const AnnouncedDisk& disk, bool pathChanged);
  void noteMounted(const Dictionary& description, const MountEntry* mount);
  void noteUnmounted(const Dictionary& description);

  std::map<std::string, MountedDisk> mounted_;  // by mount point
  std::vector<DiskEvent> events_;
};

}  // namespace kmv
