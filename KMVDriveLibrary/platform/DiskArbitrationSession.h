// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/Queue.h>

#include <memory>
#include <string>

namespace kmv {

/// Where a session delivers its events.
/// All run on the session's queue, one at a time, in the platform's order.
struct DiskCallbacks {
  void (*appeared)(Disk* disk, void* context) = nullptr;
  void (*disappeared)(Disk* disk, void* context) = nullptr;
  void (*descriptionChanged)(Disk* disk, const ChangedKeys* changedKeys, void* context) = nullptr;
  /// Once: every disk that existed at registration has been reported, but for what cannot be read at present.
  void (*presentDisksTold)(void* context) = nullptr;
};

/// Reports a command's end: on the session's queue, exactly once.
/// `dissenter` is null when the command succeeded, else the record that says who refused and why (keys in
/// DescriptionKeys.h).
/// `disk` has its description of that moment.
/// Both are borrowed for the duration of the call.
using CommandCompletion = void (*)(Disk* disk, const Dictionary* dissenter, void* context);

/// Watches the platform for disks and volumes; reports descriptions (DescriptionKeys.h) and has no policy.
///
/// The contract of every backend:
/// - Every disk that exists at registration is reported as appeared, then every change, each exactly once.
/// - The events of one disk come in causal order: appeared first, disappeared last.
/// - A mount shows as `descriptionChanged` with "DAVolumePath" when the unmounted disk was known, else as
///   appeared with a path.
///   A disk backed by a device shows an unmount as `descriptionChanged` without the path, one without a
///   device as disappeared with the path.
/// - A volume that moves without changing its name disappears and appears where the platform has no event for
///   it (Linux, the simulated machine).
///   Where it has one, that event comes as it is: a changed path alone.
/// - "DAAppearanceTime" is given once per appearance of a device, differs between any two, and stays over
///   mount and unmount.
///   A disk without a device may have none.
/// - `changedKeys` holds at least the keys that the platform names for this change.
///   A backend that finds changes by comparing (Linux, the simulated machine) also names every key in which
///   the description differs from that of the disk's last event that gained or lost a path, so that a
///   listener of only those events still recognises the disk.
/// - A description is a snapshot taken when the event was queued.
/// - A disk that cannot be described is not reported.
class DiskArbitrationSession {
 public:
  virtual ~DiskArbitrationSession() = default;

  /// The queue on which callbacks run.
  /// REQUIRES: called before `registerCallbacks`.
  virtual void setQueue(std::shared_ptr<SerialQueue> queue) = 0;

  /// Begins to deliver: first what exists, then what changes.
  /// No match dictionary and no list of watched keys: everything is reported.
  /// REQUIRES: called once.
  /// Thread: any; returns without waiting for a callback.
  virtual void registerCallbacks(const DiskCallbacks& callbacks, void* context) = 0;

  /// The disk mounted at `volume`, with its present description; null when nothing that is a drive is mounted
  /// exactly there (enclosing folders are not tried).
  /// The description is the one that the session reports for it, "DAAppearanceTime" included.
  /// Thread: any; may wait briefly for the session to catch up with the machine and for the disk's
  /// identification, but for no queue.
  virtual std::unique_ptr<Disk> diskFromVolumePath(const URL& volume) = 0;

  /// Unmounts the volume without force; the resulting event is queued before the completion.
  /// Thread: any; never blocks.
  /// REQUIRES: `disk` is one that this session's `diskFromVolumePath` gave, and the queue is set.
  virtual void unmount(const Disk& disk, CommandCompletion completion, void* context) = 0;

  /// Gives the volume a new name on its medium, atomically.
  /// Otherwise as `unmount`.
  virtual void rename(const Disk& disk, const std::string& newName, CommandCompletion completion,
                      void* context) = 0;
};

}  // namespace kmv
