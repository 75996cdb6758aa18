// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>
#include <KMVDriveLibrary/testing/SimulatedDisk.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <set>
#include <string>

namespace kmv::simulation {

/// The faults that are armed and have not struck yet. Hosts do not use it: they arm faults with the verbs of
/// `SimulatedFaults`; the part of the machine that a fault is about takes it from here.
struct ArmedFaults {
  int events = 0;              ///< to lose
  int descriptions = 0;        ///< to fail
  int mountedVolumeLists = 0;  ///< to fail
  int driverLookups = 0;       ///< to fail
  std::set<std::string> droppedKeys;
  std::set<DiskId> vanishing;
  std::deque<Dictionary> unmountRefusals;  ///< the dissenters' records
  std::deque<Dictionary> renameRefusals;

  /// Whether a fault strikes now; it then has one time less to strike.
  static bool strikes(int& armed) {
    if (armed == 0) return false;
    --armed;
    return true;
  }
};

/// Every fault of the simulated machine. Each call arms one fault for one time; calls add up.
class SimulatedFaults {
 public:
  SimulatedFaults(const SimulatedFaults&) = delete;
  SimulatedFaults& operator=(const SimulatedFaults&) = delete;

  /// The next event that happens is never delivered.
  void loseNextEvent() { ++armed_.events; }
  /// The disk of the next event has no description.
  void failNextDescription() { ++armed_.descriptions; }
  /// The description of the next event lacks this entry.
  void dropKeyFromNextDescription(const std::string& key) { armed_.droppedKeys.insert(key); }
  /// The disk is unplugged while the library asks for its description in a callback of its next event: a race
  /// that the library loses. It gets no description.
  void vanishWhileDescribed(DiskId disk) {
    requireDisk(disk);
    armed_.vanishing.insert(disk);
  }

  /// The next unmount that the library asks for is refused.
  /// A number that is left out is missing in the platform's record of the refusal.
  /// Statuses: DissentStatus.h.
  void refuseNextUnmount(std::optional<std::int64_t> status, std::optional<std::int64_t> processID = {}) {
    armed_.unmountRefusals.push_back(dissenter(status, processID));
  }
  /// The next rename that the library asks for is refused; as `refuseNextUnmount`.
  void refuseNextRename(std::optional<std::int64_t> status, std::optional<std::int64_t> processID = {}) {
    armed_.renameRefusals.push_back(dissenter(status, processID));
  }

  /// The next list of mounted volumes is empty.
  void failNextMountedVolumeList() { ++armed_.mountedVolumeLists; }
  /// The next look-up of the block-storage drivers fails.
  void failNextDriverLookup() { ++armed_.driverLookups; }

 protected:
  SimulatedFaults() = default;
  ~SimulatedFaults() = default;

  ArmedFaults& armedFaults() { return armed_; }
  /// Aborts the process when the machine has no such disk.
  virtual void requireDisk(DiskId disk) const = 0;

 private:
  static Dictionary dissenter(std::optional<std::int64_t> status, std::optional<std::int64_t> processID);

  ArmedFaults armed_;
};

}  // namespace kmv::simulation
