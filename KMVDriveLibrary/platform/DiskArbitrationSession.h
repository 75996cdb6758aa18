// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/Queue.h>

#include <memory>
#include <string>

namespace kmv {

/// Where a session delivers its events. All three run on the session's queue, one at a time, in the
/// platform's order.
struct DiskCallbacks {
  void (*appeared)(Disk* disk, void* context) = nullptr;
  void (*disappeared)(Disk* disk, void* context) = nullptr;
  void (*descriptionChanged)(Disk* disk, const ChangedKeys* changedKeys, void* context) = nullptr;
};

/// How a command's end is told: on the session's queue, once. `dissenter` is null when the command
/// succeeded, else the record that says who refused and why (keys in DescriptionKeys.h). `disk` has its
/// description of that moment. Both are borrowed for the length of the call.
using CommandCompletion = void (*)(Disk* disk, const Dictionary* dissenter, void* context);

/// Watches the platform for disks and volumes; speaks in descriptions (DescriptionKeys.h) and holds no
/// policy.
///
/// What a backend promises:
/// - Every disk that exists at registration is reported as appeared, then every change, each exactly once.
/// - Appeared, changed and disappeared of one disk come in an order that makes sense: appeared first,
/// disappeared last.
/// - A mount shows as `descriptionChanged` with "DAVolumePath" when the unmounted disk was known, else as
/// appeared with a path. A disk backed by a device shows an unmount as `descriptionChanged` without the path,
/// one without a device as disappeared with the path.
/// - A volume that moves without changing its name disappears and appears where the platform has no event for
/// it (Linux, the simulated machine). Where it has one, that event comes as it is: a changed path alone.
/// - "DAAppearanceTime" is given once per appearance of a device, differs between any two, and stays over
/// mount and unmount. A disk without a device may have none.
/// - `changedKeys` holds at least the keys that the platform names for this change. A backend that finds
/// changes by comparing (Linux, the simulated machine) also names every key in which the description differs
/// from the one of the disk's last event that carried or lost a path, so that whoever heard only of those can
/// still recognise the disk.
/// - Descriptions are handed over as they were when the event was queued.
/// - A disk that cannot be described is not reported.
class DiskArbitrationSession {
 public:
  virtual ~DiskArbitrationSession() = default;

  /// The queue on which callbacks run. REQUIRES: called before `registerCallbacks`.
  virtual void setQueue(std::shared_ptr<SerialQueue> queue) = 0;

  /// Begins to deliver: first what exists, then what changes. No match dictionary and no list of watched
  /// keys: everything is reported. REQUIRES: called once. Any thread; returns without waiting for a callback.
  virtual void registerCallbacks(const DiskCallbacks& callbacks, void* context) = 0;

  /// The disk mounted at `volume`, with its present description; null when nothing that is a drive is mounted
  /// exactly there (no climbing). The description is the one that the session reports for it,
  /// "DAAppearanceTime" included. Any thread; may wait a moment for the session to catch up with the machine,
  /// and for the disk's own identification, but for no queue.
  virtual std::unique_ptr<Disk> diskFromVolumePath(const URL& volume) = 0;

  /// Unmounts the volume, in good order or not at all; whatever event that brings is queued before the
  /// completion. Returns at once; any thread. REQUIRES: `disk` is one that this session's
  /// `diskFromVolumePath` gave, and the queue is set.
  virtual void unmount(const Disk& disk, CommandCompletion completion, void* context) = 0;

  /// Gives the volume a new name on its medium, whole or not at all. Otherwise as `unmount`.
  virtual void rename(const Disk& disk, const std::string& newName, CommandCompletion completion,
                      void* context) = 0;
};

}  // namespace kmv
