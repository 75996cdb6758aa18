// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountInfo.h"

#include <unordered_set>

#include "base/Text.h"

namespace kmv {
namespace {

/// Consumes the text up to the next single space. Two spaces in a row enclose an empty field: a source may be
/// empty.
std::optional<std::string_view> takeField(std::string_view& line) {
  if (line.data() == nullptr) return std::nullopt;
  const std::size_t space = line.find(' ');
  const std::string_view field = line.substr(0, space);
  line = space == std::string_view::npos ? std::string_view() : line.substr(space + 1);
  return field;
}

bool isOctal(char c) {
  return c >= '0' && c <= '7';
}

}  // namespace

std::string toString(DeviceNumber number) {
  return std::to_string(number.major) + ":" + std::to_string(number.minor);
}

std::optional<DeviceNumber> parseDeviceNumber(std::string_view text) {
  const std::size_t colon = text.find(':');
  if (colon == std::string_view::npos) return std::nullopt;
  const auto major = parseNumber(text.substr(0, colon));
  const auto minor = parseNumber(text.substr(colon + 1));
  if (!major || !minor || *major > UINT32_MAX || *minor > UINT32_MAX) return std::nullopt;
  return DeviceNumber{static_cast<std::uint32_t>(*major), static_cast<std::uint32_t>(*minor)};
}

bool isSameMount(const MountEntry& a, const MountEntry& b) {
  return a.id == b.id && a.parent == b.parent && a.device == b.device && a.root == b.root &&
         a.point == b.point && a.kind == b.kind && a.source == b.source;
}

std::string decodeOctal(std::string_view text) {
  std::string decoded;
  decoded.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool escape = text[i] == '\\' && i + 3 < text.size() && text[i + 1] <= '3' &&
                        isOctal(text[i + 1]) && isOctal(text[i + 2]) && isOctal(text[i + 3]);
    if (!escape) {
      decoded.push_back(text[i]);
      continue;
    }
    decoded.push_back(
        static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 + (text[i + 3] - '0')));
    i += 3;
  }
  return decoded;
}

std::optional<MountEntry> parseMountLine(std::string_view line) {
  const auto id = takeField(line), parent = takeField(line), device = takeField(line);
  const auto root = takeField(line), point = takeField(line), mountOptions = takeField(line);
  if (!mountOptions) return std::nullopt;
  // Any number of optional fields ("shared:1") stands before the single dash.
  for (auto field = takeField(line); field != "-"; field = takeField(line)) {
    if (!field) return std::nullopt;
  }
  const auto kind = takeField(line), source = takeField(line), superOptions = takeField(line);
  if (!source) return std::nullopt;

  MountEntry entry;
  const auto idNumber = parseNumber(*id), parentNumber = parseNumber(*parent);
  const auto deviceNumber = parseDeviceNumber(*device);
  if (!idNumber || !parentNumber || !deviceNumber || !point->starts_with('/') || kind->empty())
    return std::nullopt;
  entry.id = entry.reusedId = *idNumber;
  entry.parent = *parentNumber;
  entry.device = *deviceNumber;
  entry.root = decodeOctal(*root);
  entry.point = decodeOctal(*point);
  entry.kind = decodeOctal(*kind);
  entry.source = decodeOctal(*source);
  entry.superOptions = superOptions.value_or(std::string_view());
  return entry;
}

std::vector<MountEntry> parseMountInfo(std::string_view text) {
  std::vector<MountEntry> entries;
  std::unordered_set<std::uint64_t> ids;
  while (!text.empty()) {
    const std::size_t end = text.find('\n');
    auto entry = parseMountLine(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (!entry || !ids.insert(entry->id).second) continue;
    entry->order = entries.size() + 1;
    entries.push_back(std::move(*entry));
  }
  return entries;
}

std::optional<std::string_view> mountOption(std::string_view options, std::string_view name) {
  while (!options.empty()) {
    const std::size_t comma = options.find(',');
    const std::string_view option = options.substr(0, comma);
    options = comma == std::string_view::npos ? std::string_view() : options.substr(comma + 1);
    if (option.starts_with(name) && option.substr(name.size()).starts_with('='))
      return option.substr(name.size() + 1);
  }
  return std::nullopt;
}

}  // namespace kmv
