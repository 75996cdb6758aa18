// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DriverCounters.h>
#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/Space.h>
#include <KMVDriveLibrary/StorageDevices.h>
#include <KMVDriveLibrary/Value.h>
#include <KMVDriveLibrary/testing/SimulatedDisk.h>
#include <KMVDriveLibrary/testing/SimulatedFaults.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace kmv::simulation {

/// What a program did.
struct SimulatedRun {
  std::string output = {};
  std::string errors = {};
  std::optional<int> exitStatus = 0;  ///< none: it got lost
};
using SimulatedProgram = std::function<SimulatedRun(const std::vector<std::string>& arguments)>;

/// An event that is held back.
struct PendingEvent {
  enum class Kind { appeared, disappeared, descriptionChanged };
  Kind kind;
  DiskId disk;
};

/// A complete machine in memory, for tests of this library and of its hosts: disks, a file system, queues and
/// virtual time. Deterministic: everything that happens was caused by the test, in an order that depends on
/// the seed alone.
///
/// Threads: everything, all queues included, runs on the thread that made the machine; a call from another
/// thread aborts the process.
/// Failure: a use that makes no sense (an unknown disk, a second mount of one disk) aborts the process with a
/// message.
///
/// Abstract only to keep the machine's parts out of hosts' includes: `install` gives the one implementation.
class SimulatedPlatform : public SimulatedFaults {
 public:
  /// Makes a new machine, without a disk, the platform in use.
  /// Once in a process, before the library's first use and beside no copy of the static library; otherwise it aborts the
  /// process.
  /// The machine lives until the process ends.
  static SimulatedPlatform& install(std::uint64_t seed = 0);

  // --- Disks. Each verb changes the machine at once; the library hears of it when its queue runs. A volume that is
  // mounted over another, or on a folder above it, hides it: what looks at the path sees the newest, and the library hears
  // that the other has no path until it can be reached again. ---

  /// Appears, mounted when a mount point is given.
  virtual DiskId plugIn(const SimulatedDisk& disk) = 0;
  /// Appears, mounted.
  virtual DiskId plugInPathVolume(const SimulatedPathVolume& volume) = 0;
  /// Disappears without being unmounted first; a mounted one with its path.
  virtual void unplug(DiskId disk) = 0;
  virtual void mount(DiskId disk, const std::string& path) = 0;
  /// A disk with a device stays, unmounted; a path volume disappears, with its path.
  virtual void unmount(DiskId disk) = 0;
  /// To another mount point, name unchanged: disappears from the old, appears at the new.
  virtual void move(DiskId disk, const std::string& newPath) = 0;
  /// A volume mounted at "/Volumes/<name>" moves to its new name in the same event ("/" in a name is ":" in
  /// the path); any other changes its name only. Idempotent: the same name again is no event.
  virtual void rename(DiskId disk, const std::string& newName) = 0;
  /// One event for all the entries; none when nothing differs. A new "DAVolumePath" mounts the volume there.
  virtual void changeDescription(DiskId disk, const DescriptionChanges& changes) = 0;
  void changeDescriptionKey(DiskId disk, const std::string& key, std::optional<Value> value) {
    changeDescription(disk, {{key, std::move(value)}});
  }
  /// A snapshot of the description.
  virtual Dictionary description(DiskId disk) const = 0;
  virtual bool exists(DiskId disk) const = 0;

  // --- Delivery. By default each event is queued for its session at once, in order. ---

  /// From now on events are held back.
  virtual void holdEvents() = 0;
  /// Hands over the held events, in order, and holds no longer.
  virtual void releaseEvents() = 0;
  /// The held events, in the order in which they would be handed over.
  virtual std::vector<PendingEvent> pendingEvents() const = 0;
  /// Hands the first one to its session's queue.
  void deliverNext() { deliver(0); }
  /// Hands the one at `index` to its session's queue.
  virtual void deliver(std::size_t index) = 0;
  /// Reorders the held events by the seed; each disk's own events keep their order.
  virtual void shufflePending() = 0;
  /// The held event at `index` is never delivered.
  virtual void lose(std::size_t index) = 0;
  /// What a session does after a loss: drops what is held, compares what it delivered with the present state
  /// and reports the differences: disappearances, then changes, then appearances.
  virtual void rescan() = 0;

  // --- The file system. "/" exists, so do mount points, and every folder on the way to an item. Items on a
  // volume go with it. ---

  /// An item that cannot be read; as a file it is empty.
  virtual void createItem(const std::string& path) = 0;
  /// A regular file with this content. The attributes of an earlier file stay, as where a system truncates it.
  virtual void writeFile(const std::string& path, const std::string& bytes) = 0;
  /// From now on the item at `path` reports this size, whatever its content.
  virtual void setReportedSize(const std::string& path, std::uint64_t size) = 0;
  /// Removes the item, link or tree at `path`.
  virtual void removeItem(const std::string& path) = 0;
  /// Moves an item or a tree, with its attributes, to another path on its volume; what was there is replaced.
  virtual void moveItem(const std::string& path, const std::string& newPath) = 0;
  /// Whether the contents of a folder can be read; of a folder that cannot, items are still found by their paths.
  virtual void setListable(const std::string& folder, bool listable) = 0;
  /// Every question of the library to the volume takes this long from now on: time passes, and other queues go on.
  /// 0 ends it. `kNever`: the volume hangs, and whoever asks it aborts the process with a message that names the queue.
  virtual void setAnswerTime(DiskId disk, std::chrono::nanoseconds time) = 0;
  static constexpr auto kNever = std::chrono::nanoseconds::max();
  /// What `askForSpace` says of the volume; nothing at first.
  virtual void setSpace(DiskId disk, Space space) = 0;
  /// A symbolic link at `path`; replaces an earlier item. "/tmp", "/var" and "/etc" are links into "/private" from the start.
  virtual void createLink(const std::string& path, const std::string& target) = 0;
  /// A mount that is no drive.
  virtual void addHiddenMount(HiddenMount mount) = 0;

  /// Sets an extended attribute of an item, links followed; false without the item.
  virtual bool setAttribute(const std::string& path, const std::string& name, const std::string& value) = 0;
  /// False without the item, or the attribute.
  virtual bool removeAttribute(const std::string& path, const std::string& name) = 0;
  virtual std::optional<std::string> attribute(const std::string& path, const std::string& name) const = 0;

  // --- What else a platform is asked. ---

  /// A program that the library may run; replaces an earlier one. "/usr/bin/xattr" is there from the start
  /// and works on the attributes above.
  virtual void installProgram(const std::string& path, SimulatedProgram program) = 0;
  virtual void removeProgram(const std::string& path) = 0;

  /// The version of the operating system; 0.0 at first.
  virtual void setOperatingSystemVersion(int major, int minor) = 0;
  /// A service of the I/O registry that is found under a BSD name. Its own "BSD Name" may be another, or
  /// empty.
  virtual void addIOService(const std::string& foundUnder, const std::string& bsdName,
                            const std::vector<std::string>& childNames) = 0;
  /// What `wholeDiskOf` and `physicalDisksBelow` answer for a BSD name; nothing at first.
  virtual void setStorageDevices(const std::string& bsdName, const StorageDevice& whole,
                                 const std::vector<StorageDevice>& physical) = 0;
  /// How often the I/O registry was asked.
  virtual std::size_t ioRegistryQuestions() const = 0;

  /// Adds a block-storage driver at a path of the I/O registry, or sets its counters.
  /// Without counters it publishes no statistics.
  virtual void setBlockStorageDriver(const std::string& path, std::optional<DriverCounters> counters) = 0;
  virtual void removeBlockStorageDriver(const std::string& path) = 0;
  /// The path of a disk's medium in the I/O registry; none at first.
  virtual void setMediaPath(DiskId disk, const std::string& path) = 0;
  /// Leaves the volume out of the list of those that users see.
  virtual void hideFromUsers(DiskId disk) = 0;
  /// The searches of network service browsers: TYPE in "DOMAIN", " and among peers".
  virtual std::vector<std::string> serviceSearches() const = 0;

  // --- Virtual time and queues. ---

  /// Runs tasks on every queue until none is due, and returns how many ran. The seed picks the next queue;
  /// each queue keeps its order. Time stands still.
  virtual std::size_t runUntilIdle() = 0;
  /// Runs one such task; false when none was due.
  virtual bool runOne() = 0;
  /// Lets time pass. What becomes due meanwhile runs in order, each task at its own time. Drives the wall
  /// clock and the monotonic clock.
  virtual void advance(std::chrono::nanoseconds duration) = 0;
  /// Time passed since the machine was made.
  virtual std::chrono::nanoseconds now() const = 0;
  /// Sets the wall clock, which goes on from there; the monotonic clock and delayed tasks do not notice.
  virtual void setWallClock(Date date) = 0;
  /// The label of the queue whose task is running ("main" for the main queue); empty outside tasks.
  virtual std::string currentQueueLabel() const = 0;

 protected:
  SimulatedPlatform() = default;
  ~SimulatedPlatform() = default;
};

}  // namespace kmv::simulation
