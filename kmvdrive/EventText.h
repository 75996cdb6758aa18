// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <chrono>
#include <string>

#include "kmvdrive/ActivityBoard.h"
#include "kmvdrive/CodexFeed.h"
#include "kmvdrive/DriveLedger.h"
#include "kmvdrive/Style.h"

namespace kmv::tool {

/// The moment of an event, on the wall clock.
using EventTime = std::chrono::system_clock::time_point;

/// One line of JSON lines: the event, its time in seconds since 1970 with fraction, the drive.
std::string eventAsJSON(DriveEvent event, EventTime time, const Dictionary& drive);

/// One line of JSON lines for what drives moved in a cycle; empty when there is nothing to tell.
std::string activityAsJSON(EventTime time, const ActivityBoard::Activities& activities);

/// One line for what is known of a Codex volume.
std::string codexAsJSON(EventTime time, const CodexStatus& status);
std::string codexAsText(EventTime time, const CodexStatus& status, const Style& style);

/// One line for people, with the local time.
std::string eventAsText(DriveEvent event, EventTime time, const Dictionary& drive, const Style& style);

}  // namespace kmv::tool
