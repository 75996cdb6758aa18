// SPDX-License-Identifier: MIT
#include "platform/linux/devices/UdevRecord.h"

#include <cstring>

#include "platform/posix/SystemFiles.h"

namespace kmv {
namespace {

int hexDigit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

/// The part of a message that holds "KEY=VALUE" texts, each ended by NUL; none when it is no message.
std::optional<std::string_view> propertyPart(std::string_view message) {
  constexpr std::string_view kUdevMark("libudev\0", 8);
  constexpr std::size_t kOffsetPosition = 16;
  if (!message.starts_with(kUdevMark)) {
    const std::size_t headEnd = message.find('\0');
    const bool kernelHead =
        headEnd != std::string_view::npos && message.substr(0, headEnd).find('@') != std::string_view::npos;
    return kernelHead ? std::optional(message.substr(headEnd + 1)) : std::nullopt;
  }
  std::uint32_t offset = 0;
  if (message.size() < kOffsetPosition + sizeof offset) return std::nullopt;
  std::memcpy(&offset, message.data() + kOffsetPosition, sizeof offset);
  return offset <= message.size() ? std::optional(message.substr(offset)) : std::nullopt;
}

std::uint32_t deviceNumberPart(std::string_view text) {
  const auto number = parseNumber(text);
  return number && *number <= UINT32_MAX ? static_cast<std::uint32_t>(*number) : 0;
}

}  // namespace

UdevProperties parseUdevRecord(std::string_view text) {
  UdevProperties properties;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    std::string_view line = text.substr(0, end);
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (!line.starts_with("E:")) continue;
    line.remove_prefix(2);
    const std::size_t equals = line.find('=');
    if (equals == std::string_view::npos || equals == 0) continue;
    properties.insert_or_assign(std::string(line.substr(0, equals)), std::string(line.substr(equals + 1)));
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
    const bool escape = text[i] == '\\' && i + 3 < text.size() && text[i + 1] == 'x' &&
                        hexDigit(text[i + 2]) >= 0 && hexDigit(text[i + 3]) >= 0;
    if (!escape) {
      decoded.push_back(text[i]);
      continue;
    }
    decoded.push_back(static_cast<char>(hexDigit(text[i + 2]) * 16 + hexDigit(text[i + 3])));
    i += 3;
  }
  return decoded;
}

std::optional<DeviceEvent> parseDeviceMessage(std::string_view message) {
  auto part = propertyPart(message);
  if (!part) return std::nullopt;
  DeviceEvent event;
  bool block = false;
  while (!part->empty()) {
    const std::size_t end = part->find('\0');
    const std::string_view text = part->substr(0, end);
    *part = end == std::string_view::npos ? std::string_view() : part->substr(end + 1);
    const std::size_t equals = text.find('=');
    if (equals == std::string_view::npos) continue;
    const std::string_view name = text.substr(0, equals), value = text.substr(equals + 1);
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
