// SPDX-License-Identifier: MIT
#include "kmvdrive/SecondsOption.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>

namespace kmv::tool {

std::optional<double> parseSeconds(std::string_view text) {
  if (text.empty() || text.find_first_not_of("0123456789.eE+-") != std::string_view::npos)
    return std::nullopt;
  const std::string terminated(text);
  char* end = nullptr;
  const double seconds = std::strtod(terminated.c_str(), &end);
  const bool isNumber = end == terminated.c_str() + terminated.size();
  if (!isNumber || !std::isfinite(seconds) || std::signbit(seconds)) return std::nullopt;
  return seconds;
}

void addSecondsOption(CLI::App& command, std::string& seconds) {
  command
      .add_option("--for", seconds,
                  "End this many seconds (fractions allowed) after the drives that are there were shown")
      ->type_name("SECONDS")
      ->check([](const std::string& text) {
        return parseSeconds(text) ? std::string() : "\"" + text + "\" is no number of seconds";
      });
}

std::optional<EventLoop::Clock::time_point> deadlineAfterSeconds(const std::string& seconds) {
  if (seconds.empty()) return std::nullopt;
  constexpr double kLongest = 1e9;  // some thirty years: far from the clock's end
  const std::chrono::duration<double> length(std::min(parseSeconds(seconds).value_or(0), kLongest));
  return EventLoop::Clock::now() + std::chrono::ceil<EventLoop::Clock::duration>(length);
}

}  // namespace kmv::tool
