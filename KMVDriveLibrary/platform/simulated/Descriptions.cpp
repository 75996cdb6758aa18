// SPDX-License-Identifier: MIT
#include "platform/simulated/Descriptions.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <algorithm>
#include <charconv>
#include <string_view>

namespace kmv::simulated {
namespace {

void setText(Dictionary& description, const char* key, const std::string& text) {
  if (!text.empty()) description.set(key, text);
}

template <typename T>
void setOptional(Dictionary& description, const char* key, const std::optional<T>& value) {
  if (value) description.set(key, *value);
}

/// Unique on this machine; reads as 5D000000-0000-4000-8000-00000000002A for disk 42.
UUID madeUpUUID(std::uint64_t number) {
  UUID::Bytes bytes{0x5D, 0, 0, 0, 0, 0, 0x40, 0, 0x80};
  for (std::size_t i = bytes.size(); i > 10; --i, number >>= 8) {
    bytes[i - 1] = static_cast<std::uint8_t>(number & 0xFF);
  }
  return UUID(bytes);
}

bool isWhole(const std::string& bsdName, std::int64_t unit) {
  return bsdName == "disk" + std::to_string(unit);
}

}  // namespace

Dictionary describe(const simulation::SimulatedDisk& disk, const std::string& bsdName, double appearanceTime,
                    std::uint64_t number) {
  Dictionary description;
  setText(description, key::kVolumeName, disk.name);
  setText(description, key::kVolumeKind, disk.kind);
  if (!disk.kind.empty()) {
    setText(description, key::kVolumeType, disk.type);
    description.set(key::kVolumeUUID, disk.uuid.value_or(madeUpUUID(number)));
  }
  setOptional(description, key::kVolumeMountable, disk.mountable);
  setOptional(description, key::kVolumeNetwork, disk.network);
  const auto unit = disk.unit ? disk.unit : unitOfBSDName(bsdName);
  description.set(key::kMediaBSDName, bsdName);
  setOptional(description, key::kMediaBSDUnit, unit);
  if (unit) description.set(key::kMediaWhole, isWhole(bsdName, *unit));
  setText(description, key::kMediaContent, disk.content);
  setOptional(description, key::kMediaEjectable, disk.ejectable);
  setOptional(description, key::kMediaSize, disk.size);
  setOptional(description, key::kDeviceInternal, disk.internal);
  setText(description, key::kDeviceModel, disk.model);
  description.set(key::kAppearanceTime, appearanceTime);
  if (!disk.mountPoint.empty()) description.set(key::kVolumePath, mountURL(disk.mountPoint));
  apply(disk.description, description);
  return description;
}

Dictionary describe(const simulation::SimulatedPathVolume& volume) {
  Dictionary description;
  description.set(key::kVolumePath, mountURL(volume.mountPoint));
  setText(description, key::kVolumeName, volume.name);
  setText(description, key::kVolumeKind, volume.kind);
  setOptional(description, key::kVolumeNetwork, volume.network);
  setOptional(description, key::kVolumeMountable, volume.mountable);
  apply(volume.description, description);
  return description;
}

void apply(const simulation::DescriptionChanges& changes, Dictionary& description) {
  for (const auto& [key, value] : changes) {
    if (value) {
      description.set(key, *value);
    } else {
      description.remove(key);
    }
  }
}

std::optional<std::int64_t> unitOfBSDName(const std::string& bsdName) {
  constexpr std::string_view prefix = "disk";
  if (!bsdName.starts_with(prefix)) return std::nullopt;
  std::int64_t unit = 0;
  const char* end = bsdName.data() + bsdName.size();
  const auto result = std::from_chars(bsdName.data() + prefix.size(), end, unit);
  if (result.ec != std::errc() || (result.ptr != end && *result.ptr != 's')) return std::nullopt;
  return unit;
}

std::string defaultMountPoint(const std::string& volumeName) {
  std::string component = volumeName;
  std::replace(component.begin(), component.end(), '/', ':');
  return "/Volumes/" + component;
}

URL mountURL(const std::string& path) {
  return URL::fileURLWithPath(path, true);
}

}  // namespace kmv::simulated
