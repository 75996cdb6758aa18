// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/HiddenMounts.h>
#include <KMVDriveLibrary/StorageDevices.h>
#include <KMVDriveLibrary/UUID.h>
#include <KMVDriveLibrary/Value.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kmv::simulated {
class Machine;
}

namespace kmv::testing {

/// Names a disk of the simulated machine; never used twice.
enum class DiskId : std::uint64_t {};

/// Description entries to set, or to take away where there is no value.
using DescriptionChanges = std::map<std::string, std::optional<Value>>;

/// A disk with a device, as a person would describe it. What is left out (none, or an empty text) has no
/// description entry.
struct SimulatedDisk {
  std::string name = {};                  ///< "DAVolumeName"
  std::string mountPoint = {};            ///< absolute path; empty: the disk appears unmounted
  std::string bsdName = {};               ///< "disk4s2"; empty: the next whole disk that is free
  std::optional<std::int64_t> unit = {};  ///< none: the number in `bsdName`
  std::string kind = "exfat";             ///< "DAVolumeKind"; empty: no file system, so no UUID either
  std::string type = "ExFAT";             ///< "DAVolumeType"
  std::optional<UUID> uuid = {};          ///< none: one that no other disk of this machine has
  std::optional<std::int64_t> size = 64'000'000'000;  ///< bytes
  std::optional<bool> internal = {};                  ///< "DADeviceInternal"
  std::optional<bool> ejectable = {};                 ///< "DAMediaEjectable"
  std::optional<bool> network = {};                   ///< "DAVolumeNetwork"
  std::optional<bool> mountable = true;               ///< "DAVolumeMountable"
  std::string content = {};                           ///< "DAMediaContent"
  std::string model = {};                             ///< "DADeviceModel"
  DescriptionChanges description = {};                ///< the last word on any entry
};

/// A volume without a device (network share, FUSE): no BSD entries, no UUID, no appearance time. Exists while
/// it is mounted.
struct SimulatedPathVolume {
  std::string mountPoint;                ///< absolute path
  std::string name = {};                 ///< "DAVolumeName"
  std::string kind = "smbfs";            ///< "DAVolumeKind"
  std::optional<bool> network = true;    ///< "DAVolumeNetwork"
  std::optional<bool> mountable = true;  ///< "DAVolumeMountable"
  DescriptionChanges description = {};   ///< the last word on any entry
};

/// What a block-storage driver has counted so far; latencies in nanoseconds.
struct SimulatedCounters {
  std::uint64_t bytesRead = 0;
  std::uint64_t bytesWritten = 0;
  std::uint64_t readLatency = 0;
  std::uint64_t writeLatency = 0;
};

/// What a program did; no exit status when it got lost.
struct SimulatedRun {
  std::string output = {};
  std::string errors = {};
  std::optional<int> exitStatus = 0;
};
using SimulatedProgram = std::function<SimulatedRun(const std::vector<std::string>& arguments)>;

/// An event that is held back.
struct PendingEvent {
  enum class Kind { appeared, disappeared, descriptionChanged };
  Kind kind;
  DiskId disk;
};

/// A complete machine in memory, for tests of this library and of its hosts: disks, a file system, queues and
/// time. All that happens on it happens because the test says so, in an order that the seed decides and
/// repeats.
///
/// Threads: everything, all queues included, runs on the thread that installed it; another one stops the
/// process. Failure: a use that makes no sense (an unknown disk, a second mount of one disk) stops the
/// process with a message.
class SimulatedPlatform {
 public:
  /// Makes a new machine, without a disk, the platform in use. Once in a process, before the library's first
  /// use; otherwise it stops the process. The machine lives until the process ends.
  static SimulatedPlatform& install(std::uint64_t seed = 0);

  SimulatedPlatform(const SimulatedPlatform&) = delete;
  SimulatedPlatform& operator=(const SimulatedPlatform&) = delete;

  // --- Disks. Each verb changes the machine at once; what the library hears of it waits for its queue to
  // run. ---

  /// Appears, mounted when a mount point is given.
  DiskId plugIn(const SimulatedDisk& disk);
  /// Appears, mounted.
  DiskId plugInPathVolume(const SimulatedPathVolume& volume);
  /// Disappears without a word; a mounted one with its path.
  void unplug(DiskId disk);
  void mount(DiskId disk, const std::string& path);
  /// A disk with a device stays, unmounted; a path volume disappears, with its path.
  void unmount(DiskId disk);
  /// To another mount point, name unchanged: disappears from the old, appears at the new.
  void move(DiskId disk, const std::string& newPath);
  /// A volume mounted at "/Volumes/<name>" moves to its new name in the same event ("/" in a name is ":" in
  /// the path); any other changes its name only. The same name again is no event.
  void rename(DiskId disk, const std::string& newName);
  /// One event for all the entries; none when nothing differs. A new "DAVolumePath" mounts the volume there.
  void changeDescription(DiskId disk, const DescriptionChanges& changes);
  void changeDescriptionKey(DiskId disk, const std::string& key, std::optional<Value> value);
  /// The description at this moment.
  Dictionary description(DiskId disk) const;
  bool exists(DiskId disk) const;

  // --- Delivery. By default each event goes to the queue of its session at once, in order. ---

  /// From now on events are held back.
  void holdEvents();
  /// Hands over what is held, in order, and holds no longer.
  void releaseEvents();
  /// The events that are held, in the order in which they would be handed over.
  std::vector<PendingEvent> pendingEvents() const;
  /// Hands the first one (the one at `index`) to its session's queue.
  void deliverNext();
  void deliver(std::size_t index);
  /// Another order, by the seed, in which every disk's own events keep theirs.
  void shufflePending();
  /// The next event that happens (the held one at `index`) is never delivered.
  void loseNextEvent();
  void lose(std::size_t index);
  /// What a session does after a loss: drops what is held, compares what it delivered with what is, and
  /// reports the differences: disappearances, then changes, then appearances.
  void rescan();

  // --- Faults. Each call is good for one time. ---

  /// The disk of the next event has no description.
  void failNextDescription();
  /// The description of the next event lacks this entry.
  void dropKeyFromNextDescription(const std::string& key);
  /// When the library asks the disk of this disk's next event for its description, there is none: it was just
  /// unplugged.
  void vanishWhileDescribed(DiskId disk);
  /// The next unmount (rename) that the library asks for is refused; what is left out is missing in the
  /// platform's record of who refused and why. Statuses: DissentStatus.h.
  void refuseNextUnmount(std::optional<std::int64_t> status, std::optional<std::int64_t> processID = {});
  void refuseNextRename(std::optional<std::int64_t> status, std::optional<std::int64_t> processID = {});
  /// The file system answers the next question for the mounted volumes with none.
  void failNextMountedVolumeList();

  // --- The file system. "/" exists, so do mount points, and whatever leads to an item. Items on a volume go
  // with it. ---

  /// An item that cannot be read; as a file it is empty.
  void createItem(const std::string& path);
  /// A regular file with this content; in place of an earlier one.
  void writeFile(const std::string& path, const std::string& bytes);
  /// From now on the file at `path` is said to have this size, whatever is in it.
  void setReportedSize(const std::string& path, std::uint64_t size);
  /// The item, link or tree at `path`.
  void removeItem(const std::string& path);
  /// A symbolic link at `path`. "/tmp", "/var" and "/etc" are links into "/private" from the start.
  void createLink(const std::string& path, const std::string& target);
  /// A mount that is no drive.
  void addHiddenMount(HiddenMount mount);

  /// An extended attribute of an item; false without the item.
  bool setAttribute(const std::string& path, const std::string& name, const std::string& value);
  std::optional<std::string> attribute(const std::string& path, const std::string& name) const;

  // --- What else a platform is asked. ---

  /// A program that the library may run, in place of an earlier one. "/usr/bin/xattr" is there from the start
  /// and works on the attributes above.
  void installProgram(const std::string& path, SimulatedProgram program);
  void removeProgram(const std::string& path);

  /// The version that the operating system gives itself; 0.0 at first.
  void setOperatingSystemVersion(int major, int minor);
  /// A service of the I/O registry that is found under a BSD name. Its own "BSD Name" may be another, or
  /// empty.
  void addIOService(const std::string& foundUnder, const std::string& bsdName,
                    const std::vector<std::string>& childNames);
  /// What `wholeDiskOf` and `physicalDisksBelow` answer for a BSD name; nothing at first.
  void setStorageDevices(const std::string& bsdName, const StorageDevice& whole,
                         const std::vector<StorageDevice>& physical);
  /// How often the I/O registry was asked.
  std::size_t ioRegistryQuestions() const;

  /// A block-storage driver at a path of the I/O registry, new or as it counts from now on; without counters
  /// it publishes no statistics.
  void setBlockStorageDriver(const std::string& path, std::optional<SimulatedCounters> counters);
  void removeBlockStorageDriver(const std::string& path);
  /// The next look-up of the drivers fails.
  void failNextDriverLookup();
  /// Where the medium of a disk stands in the I/O registry; nowhere at first.
  void setMediaPath(DiskId disk, const std::string& path);
  /// Leaves the volume out of the list of those that users see.
  void hideFromUsers(DiskId disk);
  /// What network service browsers were to look for: TYPE in "DOMAIN", " and among peers".
  std::vector<std::string> serviceSearches() const;

  // --- Time and queues. ---

  /// Runs tasks on every queue until none is due, and returns how many ran. Which queue is next, the seed
  /// decides; each queue keeps its order. Time stands still.
  std::size_t runUntilIdle();
  /// Runs one such task; false when none was due.
  bool runOne();
  /// Lets time pass. What becomes due meanwhile runs in its order, each at its own time.
  void advance(std::chrono::nanoseconds duration);
  /// Time passed since the machine was made.
  std::chrono::nanoseconds now() const;
  /// The label of the queue whose task is running ("main" for the main queue); empty outside tasks.
  std::string currentQueueLabel() const;

 private:
  explicit SimulatedPlatform(std::shared_ptr<simulated::Machine> machine);
  ~SimulatedPlatform() = default;

  std::shared_ptr<simulated::Machine> machine_;
};

}  // namespace kmv::testing
