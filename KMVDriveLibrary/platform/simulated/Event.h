// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Disk.h>
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <map>
#include <optional>
#include <set>
#include <string>

namespace kmv::simulated {

/// What happened to a disk.
struct Event {
  enum class Cause { ordinary, move, replacedPath };

  simulation::PendingEvent::Kind kind;
  simulation::DiskId disk;
  std::optional<Dictionary> description;  // snapshot of when it happened; none: it cannot be described
  ChangedKeys changedKeys;        // those of this change; on delivery, those since the last news of a path
  Cause cause = Cause::ordinary;  // lets a session make sense of the event when earlier ones were lost
  std::set<std::string> missing = {};  // entries that this event's description lacks
  bool vanishes = false;               // the disk is unplugged when the library asks for its description
};

/// Every disk that is plugged in, in the order in which they were.
using DiskTable = std::map<simulation::DiskId, Dictionary>;

}  // namespace kmv::simulated
