// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "kmvdrive/DriveLedger.h"
#include "kmvdrive/Style.h"

namespace kmv::tool {

/// The moment of an event, on the wall clock.
using EventTime = std::chrono::system_clock::time_point;

/// One line of JSON lines: the event, its time in seconds since 1970 with fraction, the drive.
std::string eventAsJSON(DriveEvent event, EventTime time, const Dictionary& drive);

/// One line for people, with the local time.
std::string eventAsText(DriveEvent event, EventTime time, const Dictionary& drive, const Style& style);

/// A number of seconds, with or without a fraction; none for what is negative, infinite or no decimal number.
std::optional<double> parseSeconds(std::string_view text);

}  // namespace kmv::tool
