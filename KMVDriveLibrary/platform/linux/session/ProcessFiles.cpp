// SPDX-License-Identifier: MIT
#include "platform/linux/session/ProcessFiles.h"

#include <algorithm>
#include <charconv>

#include "base/Text.h"

namespace kmv {
namespace {

/// "fd:1a".
std::optional<DeviceNumber> parseHexNumber(std::string_view text) {
  DeviceNumber number;
  const char* const end = text.data() + text.size();
  const auto majorPart = std::from_chars(text.data(), end, number.major, 16);
  if (majorPart.ptr == end || *majorPart.ptr != ':') return std::nullopt;
  const auto minorPart = std::from_chars(majorPart.ptr + 1, end, number.minor, 16);
  return minorPart.ptr == end ? std::optional(number) : std::nullopt;
}

}  // namespace

std::optional<Mapping> parseMapping(std::string_view line) {
  takeWord(line), takeWord(line), takeWord(line);  // addresses, permissions, offset
  const auto device = parseHexNumber(takeWord(line));
  takeWord(line);  // the inode
  line.remove_prefix(std::min(line.find_first_not_of(' '), line.size()));
  return device ? std::optional(Mapping{*device, line}) : std::nullopt;
}

std::string pathInMaps(std::string_view path) {
  std::string escaped;
  for (const char c : path) escaped += c == '\n' ? std::string("\\012") : std::string(1, c);
  return escaped;
}

std::optional<std::uint64_t> mountIdOfDescriptor(std::string_view text) {
  constexpr std::string_view kField = "mnt_id:";
  while (!text.empty()) {
    const std::string_view line = takeLine(text);
    if (line.starts_with(kField)) return parseNumber(trimmed(line.substr(kField.size())));
  }
  return std::nullopt;
}

bool isUninterruptible(std::string_view text) {
  const std::size_t nameEnd = text.rfind(") ");
  return nameEnd != std::string_view::npos && text.substr(nameEnd + 2, 1) == "D";
}

}  // namespace kmv
