// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "kmvdrive/Activity.h"
#include "kmvdrive/CodexFeed.h"
#include "kmvdrive/DisplayText.h"
#include "kmvdrive/DriveLedger.h"

namespace kmv::tool {

/// The moment of an event, on the wall clock.
using EventTime = std::chrono::system_clock::time_point;

// JSON lines begin with "event" and "time", seconds since 1970 with fraction; text lines with the local time.

std::string eventAsJSON(DriveEvent event, EventTime time, const Dictionary& drive);
std::string eventAsText(DriveEvent event, EventTime time, const Dictionary& drive, const Style& style);

/// What drives moved in a cycle; empty when nothing did.
std::string activityAsJSON(EventTime time, const ActivityBoard::Activities& activities);

/// What is known of a Codex volume.
std::string codexAsJSON(EventTime time, const CodexStatus& status);
std::string codexAsText(EventTime time, const CodexStatus& status, const Style& style);

/// Mounts that may have come and gone unseen, so many since the last such line.
std::string missedAsJSON(EventTime time, std::uint64_t mounts);
std::string missedAsText(EventTime time, std::uint64_t mounts, const Style& style);

/// Why the platform said no, from the object of "kDiskEjectionRejected": a sentence without its full stop,
/// with the platform's status and the process that holds the volume, if known: "something on it is in use
/// (status 0xF8DA0002, process 4711)".
std::string refusalText(const Dictionary& rejection);

}  // namespace kmv::tool
