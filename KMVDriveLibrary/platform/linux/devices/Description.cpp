// SPDX-License-Identifier: MIT
#include "platform/linux/devices/Description.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <uuid/uuid.h>

#include <algorithm>
#include <string>

#include "base/Text.h"
#include "platform/linux/mounts/VolumeRules.h"

namespace kmv {
namespace {

/// The name space of the name-based (SHA-1) UUIDs that stand for ids that are not UUIDs. Must never change:
/// hosts persist these UUIDs.
constexpr std::string_view kIdNameSpace = "6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b60";

/// The volume's type in the words that hosts test for: FAT by its width, anything else by its kind.
std::string volumeType(std::string_view kind, const SignatureFacts& facts) {
  if (kind != "vfat" && kind != "msdos") return std::string(kind);
  return facts.version.starts_with("FAT") ? "MS-DOS (" + facts.version + ")" : "MS-DOS";
}

std::string mediaContent(const BlockDevice& device) {
  const std::string& type = device.facts.partitionType;
  // A GUID is given in upper case, a number ("0xc") as it stands.
  if (!device.whole) return UUID::fromString(type) ? upperCase(type) : type;
  if (!device.facts.type.empty()) return {};
  if (device.facts.tableType == "gpt") return "GUID_partition_scheme";
  if (device.facts.tableType == "dos") return "FDisk_partition_scheme";
  return device.facts.tableType;
}

void describeVolume(const SignatureFacts& facts, const MountEntry* mount, Dictionary& description) {
  const std::string_view kind =
      mount != nullptr ? std::string_view(mount->kind) : std::string_view(facts.type);
  std::string_view name = facts.label;
  if (name.empty() && mount != nullptr) name = mount->point == "/" ? "/" : lastComponent(mount->point);
  description.set(key::kVolumeKind, kind);
  description.set(key::kVolumeType, volumeType(kind, facts));
  if (!name.empty()) description.set(key::kVolumeName, name);
  if (!facts.id.empty()) description.set(key::kVolumeIdentifier, facts.id);
  if (const auto uuid = volumeUUID(facts.type.empty() ? kind : facts.type, facts.id))
    description.set(key::kVolumeUUID, *uuid);
  description.set(key::kVolumeMountable, true);
  description.set(key::kVolumeNetwork, isNetworkKind(kind));
}

void describeMedia(const BlockDevice& device, Dictionary& description) {
  description.set(key::kMediaBSDName, device.name);
  description.set(key::kMediaBSDUnit, device.unit);
  if (const std::string content = mediaContent(device); !content.empty())
    description.set(key::kMediaContent, content);
  description.set(key::kMediaEjectable, device.ejectable);
  description.merge(device.hardwareFacts);
  if (!device.facts.partitionName.empty()) description.set(key::kMediaName, device.facts.partitionName);
  if (const auto uuid = UUID::fromString(device.facts.partitionId)) description.set(key::kMediaUUID, *uuid);
  description.set(key::kMediaSize, device.bytes);
  description.set(key::kMediaWhole, device.whole);
  description.set(key::kDeviceInternal, device.internal);
  if (!device.model.empty()) description.set(key::kDeviceModel, device.model);
}

}  // namespace

Dictionary describeDisk(const BlockDevice* device, const MountEntry* mount, double appearanceTime) {
  Dictionary description;
  const SignatureFacts facts = device != nullptr ? device->facts : SignatureFacts();
  // Swap, encrypted and RAID members are media, but no volumes.
  if (mount != nullptr || facts.usage == "filesystem") describeVolume(facts, mount, description);
  if (mount != nullptr)
    description.set(key::kVolumePath, URL::fileURLWithPath(mount->point, /*isDirectory=*/true));
  if (device != nullptr) describeMedia(*device, description);
  description.set(key::kAppearanceTime, appearanceTime);
  return description;
}

std::optional<UUID> volumeUUID(std::string_view type, std::string_view id) {
  if (id.empty()) return std::nullopt;
  if (const auto own = UUID::fromString(id)) return own->isNull() ? std::nullopt : own;
  uuid_t nameSpace, made;
  uuid_parse(std::string(kIdNameSpace).c_str(), nameSpace);
  const std::string name = std::string(type) + ":" + upperCase(id);
  uuid_generate_sha1(made, nameSpace, name.data(), name.size());
  UUID::Bytes bytes{};
  std::copy(std::begin(made), std::end(made), bytes.begin());
  return UUID(bytes);
}

}  // namespace kmv
