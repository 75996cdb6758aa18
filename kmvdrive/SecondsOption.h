// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "kmvdrive/EventLoop.h"

namespace CLI {
class App;
}

namespace kmv::tool {

/// A number of seconds, with or without a fraction; none for what is negative, infinite or no decimal number.
std::optional<double> parseSeconds(std::string_view text);

/// Adds `--for SECONDS` to a command; the text, checked, goes to `seconds`, which stays empty without the
/// option.
void addSecondsOption(CLI::App& command, std::string& seconds);

/// When that many seconds from now are over; none for an empty text.
std::optional<EventLoop::Clock::time_point> deadlineAfterSeconds(const std::string& seconds);

}  // namespace kmv::tool
