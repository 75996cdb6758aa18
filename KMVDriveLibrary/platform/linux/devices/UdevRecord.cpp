// SPDX-License-Identifier: MIT
#include "platform/linux/devices/UdevRecord.h"

#include <utility>

#include "base/Hex.h"
#include "base/Text.h"

namespace kmv {
namespace {

/// "NAME=VALUE"; an empty name when there is no "=".
std::pair<std::string_view, std::string_view> propertyOf(std::string_view text) {
  if (text.find('=') == std::string_view::npos) return {};
  const std::string_view name = takeUntil(text, '=');
  return {name, text};
}

std::uint32_t deviceNumberPart(std::string_view text) {
  const auto number = parseNumber(text);
  return number && *number <= UINT32_MAX ? static_cast<std::uint32_t>(*number) : 0;
}

}  // namespace

UdevProperties parseUdevRecord(std::string_view text) {
  constexpr std::string_view kPropertyMark = "E:";
  UdevProperties properties;
  while (!text.empty()) {
    const std::string_view line = takeLine(text);
    if (!line.starts_with(kPropertyMark)) continue;
    const auto [name, value] = propertyOf(line.substr(kPropertyMark.size()));
    if (!name.empty()) properties.insert_or_assign(std::string(name), std::string(value));
  }
  return properties;
}

std::string_view property(const UdevProperties& properties, std::string_view name) {
  const auto found = properties.find(name);
  return found == properties.end() ? std::string_view() : std::string_view(found->second);
}

std::string decodeUdevText(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escape = text.substr(i, 2) == "\\x" && i + 3 < text.size();
    const int byte = escape ? hexByteValue(text[i + 2], text[i + 3]) : -1;
    decoded.push_back(byte < 0 ? text[i] : static_cast<char>(byte));
    if (byte >= 0) i += 3;
  }
  return decoded;
}

std::optional<DeviceEvent> parseDeviceMessage(std::string_view message) {
  if (takeUntil(message, '\0').find('@') == std::string_view::npos) return std::nullopt;
  DeviceEvent event;
  bool block = false;
  while (!message.empty()) {
    const auto [name, value] = propertyOf(takeUntil(message, '\0'));
    if (name == "ACTION") event.action = value;
    if (name == "DEVPATH") event.path = value;
    if (name == "SUBSYSTEM") block = value == "block";
    if (name == "MAJOR") event.number.major = deviceNumberPart(value);
    if (name == "MINOR") event.number.minor = deviceNumberPart(value);
    if (name == "SEQNUM") event.sequence = parseNumber(value).value_or(0);
  }
  if (!block || event.action.empty() || event.number.major == 0) return std::nullopt;
  return event;
}

}  // namespace kmv
