// SPDX-License-Identifier: MIT
#include "platform/linux/devices/BlockStatistics.h"

#include <cstddef>
#include <iterator>
#include <limits>

namespace kmv {
namespace {

/// Consumes a decimal number and the blanks before it; none when there is none. On overflow of 64 bits it
/// wraps around.
std::optional<std::uint64_t> takeNumber(std::string_view& text) {
  std::size_t at = 0;
  while (at < text.size() && text[at] == ' ') ++at;
  std::size_t end = at;
  std::uint64_t number = 0;
  for (; end < text.size() && text[end] >= '0' && text[end] <= '9'; ++end)
    number = number * 10 + static_cast<std::uint64_t>(text[end] - '0');
  text.remove_prefix(end);
  return end == at ? std::nullopt : std::optional(number);
}

void takeWord(std::string_view& text) {
  std::size_t at = 0;
  while (at < text.size() && text[at] == ' ') ++at;
  while (at < text.size() && text[at] != ' ') ++at;
  text.remove_prefix(at);
}

std::optional<DiskStatisticsLine> parseLine(std::string_view line) {
  constexpr std::uint64_t kMost = std::numeric_limits<std::uint32_t>::max();
  const auto major = takeNumber(line), minor = takeNumber(line);
  if (!major || !minor || *major > kMost || *minor > kMost) return std::nullopt;
  takeWord(line);  // the name
  const auto statistics = parseBlockStatistics(line);
  if (!statistics) return std::nullopt;
  return DiskStatisticsLine{{static_cast<std::uint32_t>(*major), static_cast<std::uint32_t>(*minor)},
                            *statistics};
}

}  // namespace

std::optional<BlockStatistics> parseBlockStatistics(std::string_view text) {
  // reads, merged, sectors, milliseconds; the same for writes; in flight, milliseconds busy; newer kernels tell more
  constexpr std::size_t kNeeded = 8;
  std::uint64_t fields[10] = {};
  for (std::size_t i = 0; i < std::size(fields); ++i) {
    const auto number = takeNumber(text);
    if (!number && i < kNeeded) return std::nullopt;
    fields[i] = number.value_or(0);
  }
  return BlockStatistics{fields[2], fields[3], fields[6], fields[7], fields[0], fields[4], fields[9]};
}

std::optional<DiskStatisticsLine> takeDiskStatisticsLine(std::string_view& text) {
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    const auto line = parseLine(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    if (line) return line;
  }
  return std::nullopt;
}

}  // namespace kmv
