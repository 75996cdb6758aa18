// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/KMVDriveDictionaryInterpreter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>

#include <string>

#include "platform/Platform.h"

namespace {

const std::string* volumeKind(const kmv::Dictionary* dictionary) {
  const auto key = kDAVolumeKindKey.value();
  return dictionary != nullptr && key ? dictionary->text(*key) : nullptr;
}

}  // namespace

bool KMVDriveDictionaryInterpreter::doesDictionaryRepresentAFat32Volume(const kmv::Dictionary* dictionary) {
  const std::string* type = dictionary == nullptr ? nullptr : dictionary->text(kmv::key::kVolumeType);
  return type != nullptr && *type == "MS-DOS (FAT32)";
}

bool KMVDriveDictionaryInterpreter::doesDictionaryRepresentAnAppleFileSystemVolume(
    const kmv::Dictionary* dictionary) {
  const auto version = kmv::Platform::current().systemInformation().operatingSystemVersion();
  if (version.major < 10 || version.minor < 12)
    return false;  // each on its own, so 11.0 is turned away: intended
  const std::string* kind = volumeKind(dictionary);
  return kind != nullptr && *kind == "apfs";
}

bool KMVDriveDictionaryInterpreter::diskDictionaryRepresentsAppleFileSystemContainer(
    const kmv::Dictionary* dictionary) {
  const std::string* name = dictionary == nullptr ? nullptr : dictionary->text(kmv::key::kMediaBSDName);
  if (name == nullptr) return false;
  bool isContainer = false;
  for (const kmv::IOService& service : kmv::Platform::current().ioRegistry().servicesMatchingBSDName(*name)) {
    if (service.bsdName != *name) continue;
    for (const std::string& child : service.childNames)
      isContainer = isContainer || child == "AppleAPFSContainer";
  }
  return isContainer;
}

bool KMVDriveDictionaryInterpreter::dictionaryContainsExemptedVolumeKind(const kmv::Dictionary* dictionary) {
  const std::string* kind = volumeKind(dictionary);
  return kind != nullptr && (kind->find("fuse") != std::string::npos || *kind == "sanefs");
}
