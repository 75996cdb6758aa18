// SPDX-License-Identifier: MIT
#include "kmvdrive/DriveSummary.h"

#include <KMVDriveLibrary/KMVDriveKeys.h>

#include <string_view>
#include <utility>

#include "kmvdrive/DisplayText.h"

namespace kmv::tool {
namespace {

std::string textUnder(const Dictionary& drive, std::string_view key) {
  const std::string* text = drive.text(key);
  return text == nullptr ? std::string() : *text;
}

std::string sizeOf(const Dictionary& drive) {
  const Value* size = drive.find("DAMediaSize");
  if (size == nullptr || !size->isNumber() || size->integerValue() < 0) return {};
  return sizeText(size->integerValue());
}

/// The identity that the registry gave the drive; what is not mounted has only the one that the volume says
/// itself.
std::string uuidOf(const Dictionary& drive) {
  const UUID* volumeUUID = drive.uuid("DAVolumeUUID");
  std::string identity = textUnder(drive, kDiskUUIDKey);
  if (identity.empty() && volumeUUID != nullptr) return volumeUUID->string();
  return identity;
}

std::string flagsOf(const Dictionary& drive) {
  const std::pair<std::string_view, std::string_view> flags[] = {
      {kDiskRemoveableKey, "removable"}, {"DAMediaEjectable", "ejectable"}, {kDiskNetworkKey, "network"}};
  std::string text;
  for (const auto& [key, name] : flags) {
    if (!drive.boolValue(key).value_or(false)) continue;
    if (!text.empty()) text += ',';
    text += name;
  }
  return text;
}

}  // namespace

DriveSummary summaryOf(const Dictionary& drive) {
  const URL* url = drive.url(kDiskURLKey);
  DriveSummary summary;
  summary.name = textUnder(drive, kDiskVolumeName);
  summary.kind = textUnder(drive, "DAVolumeKind");
  summary.size = sizeOf(drive);
  summary.mountPoint = url == nullptr ? std::string() : url->path();
  summary.device = textUnder(drive, "DAMediaBSDName");
  summary.uuid = uuidOf(drive);
  summary.flags = flagsOf(drive);
  return summary;
}

}  // namespace kmv::tool
