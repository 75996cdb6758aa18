// SPDX-License-Identifier: MIT
#include "kmvdrive/DriveFacts.h"

#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>

#include <string_view>

namespace kmv::tool {
namespace {

/// How a kind of value is shown: as a JSON member (null: left out) and as a cell (empty: not known).
struct Print {
  JSON (*member)(const Dictionary& drive, std::string_view key);
  std::string (*cell)(const Dictionary& drive, std::string_view key) = nullptr;  ///< null: the member's text
  Table::Align align = Table::Align::left;

  std::string text(const Dictionary& drive, std::string_view key) const {
    if (cell != nullptr) return cell(drive, key);
    const JSON value = member(drive, key);
    return value.is_null() ? std::string() : value.is_string() ? value.get<std::string>() : value.dump();
  }
};

JSON textOrNone(const Dictionary& drive, std::string_view key) {
  const std::string* text = drive.text(key);
  return text == nullptr ? JSON() : JSON(*text);
}

std::string sizeCell(const Dictionary& drive, std::string_view key) {
  const Value* size = drive.find(key);
  if (size == nullptr || !size->isNumber() || size->doubleValue() < 0) return {};
  return sizeText(size->unsignedValue());
}

/// The identity that the registry gave the drive; what is not mounted has only the UUID of the volume.
std::string identityCell(const Dictionary& drive, std::string_view identityKey) {
  const std::string* identity = drive.text(identityKey);
  if (identity != nullptr && !identity->empty()) return *identity;
  const UUID* volumeUUID = drive.uuid(key::kVolumeUUID);
  return volumeUUID == nullptr ? std::string() : volumeUUID->string();
}

const Print kText{textOrNone};
const Print kIdentity{textOrNone, identityCell};
const Print kURL{[](const Dictionary& drive, std::string_view key) {
  const URL* url = drive.url(key);
  return url == nullptr ? JSON() : JSON(url->absoluteString());
}};
const Print kPath{[](const Dictionary& drive, std::string_view key) {
  const URL* url = drive.url(key);
  return url == nullptr ? JSON() : JSON(url->path());
}};
const Print kTruth{[](const Dictionary& drive, std::string_view key) {
  const auto truth = drive.boolValue(key);
  return truth ? JSON(*truth) : JSON();
}};
const Print kUUIDText{[](const Dictionary& drive, std::string_view key) {
  const UUID* uuid = drive.uuid(key);
  return uuid == nullptr ? JSON() : JSON(uuid->string());
}};
const Print kReal{[](const Dictionary& drive, std::string_view key) {
                    return drive.contains(key) ? JSON(drive.doubleValue(key)) : JSON();
                  },
                  nullptr, Table::Align::right};
const Print kBytes{[](const Dictionary& drive, std::string_view key) {
                     const Value* size = drive.find(key);
                     return size == nullptr ? JSON() : jsonOfInteger(*size);
                   },
                   sizeCell, Table::Align::right};

/// Where `list` shows a fact beside the JSON: its columns, those of `list -v`, or as a word among the flags.
enum class Shown { nowhere, always, whenMounted, whenUnmounted, verbosely, asFlag };

struct DriveFact {
  std::string_view key;
  const char* jsonName;  // null: it is only in "description"
  const char* label;     // the column's heading, or the flag
  Shown shown;
  const Print& print;
};

std::string flagsCell(const Dictionary& drive, std::string_view);
const Print kFlags{textOrNone, flagsCell};

// JSON members and columns come in this order, which scripts may rely on; hence two lines for some keys.
//
// A new description key is one more line at the end.
const DriveFact kFacts[] = {
    {key::kVolumePath, "url", nullptr, Shown::nowhere, kURL},
    {key::kVolumePath, "path", nullptr, Shown::nowhere, kPath},
    {key::kVolumeName, "name", "NAME", Shown::always, kText},
    {key::kVolumeKind, "kind", "KIND", Shown::always, kText},
    {key::kMediaSize, nullptr, "SIZE", Shown::always, kBytes},
    {key::kVolumePath, nullptr, "MOUNT POINT", Shown::whenMounted, kPath},
    {key::kMediaBSDName, nullptr, "DEVICE", Shown::whenUnmounted, kText},
    {kDiskUUIDKey, "uuid", "UUID", Shown::always, kIdentity},
    {"", nullptr, "FLAGS", Shown::always, kFlags},
    {key::kMediaBSDName, "bsdName", nullptr, Shown::nowhere, kText},
    {kDiskRemoveableKey, "removable", "removable", Shown::asFlag, kTruth},
    {key::kMediaEjectable, nullptr, "ejectable", Shown::asFlag, kTruth},
    {kDiskMountedPriorToApplicationInstance, "mountedBeforeStart", nullptr, Shown::nowhere, kTruth},
    {key::kVolumeNetwork, "network", "network", Shown::asFlag, kTruth},
    {key::kAppearanceTime, "appeared", nullptr, Shown::nowhere, kReal},
    {key::kDeviceProtocol, "protocol", "BUS", Shown::verbosely, kText},
    {key::kDeviceVendor, "vendor", nullptr, Shown::nowhere, kText},
    {key::kDeviceModel, "model", "MODEL", Shown::verbosely, kText},
    {key::kDeviceSerial, "serial", "SERIAL", Shown::verbosely, kText},
    {key::kDeviceRevision, "revision", nullptr, Shown::nowhere, kText},
    {key::kDeviceRotational, "rotational", nullptr, Shown::nowhere, kTruth},
    {key::kMediaWritable, "writable", nullptr, Shown::nowhere, kTruth},
    {key::kMediaBlockSize, "blockSize", nullptr, Shown::nowhere, kBytes},
    {key::kMediaName, "partitionName", nullptr, Shown::nowhere, kText},
    {key::kMediaUUID, "partitionUUID", nullptr, Shown::nowhere, kUUIDText},
    {key::kVolumeIdentifier, "identifier", nullptr, Shown::nowhere, kText},
};

std::string flagsCell(const Dictionary& drive, std::string_view) {
  std::string text;
  for (const DriveFact& fact : kFacts) {
    if (fact.shown != Shown::asFlag || !drive.boolValue(fact.key).value_or(false)) continue;
    if (!text.empty()) text += ',';
    text += fact.label;
  }
  return text;
}

bool isColumn(const DriveFact& fact, Columns which) {
  const bool mounted = which == Columns::mounted || which == Columns::mountedVerbose;
  switch (fact.shown) {
    case Shown::always:
      return true;
    case Shown::whenMounted:
      return mounted;
    case Shown::whenUnmounted:
      return !mounted;
    case Shown::verbosely:
      return which == Columns::mountedVerbose || which == Columns::unmountedVerbose;
    case Shown::nowhere:
    case Shown::asFlag:
      break;
  }
  return false;
}

}  // namespace

DriveSummary summaryOf(const Dictionary& drive) {
  return {.name = kText.text(drive, key::kVolumeName),
          .kind = kText.text(drive, key::kVolumeKind),
          .size = kBytes.text(drive, key::kMediaSize),
          .mountPoint = kPath.text(drive, key::kVolumePath),
          .device = kText.text(drive, key::kMediaBSDName),
          .flags = flagsCell(drive, {})};
}

std::vector<Table::Column> driveColumns(Columns which) {
  std::vector<Table::Column> columns;
  for (const DriveFact& fact : kFacts) {
    if (isColumn(fact, which)) columns.push_back({fact.label, fact.print.align});
  }
  return columns;
}

std::vector<std::string> driveCells(Columns which, const Dictionary& drive) {
  std::vector<std::string> cells;
  for (const DriveFact& fact : kFacts) {
    if (isColumn(fact, which)) cells.push_back(fact.print.text(drive, fact.key));
  }
  return cells;
}

JSON jsonOfDrive(const Dictionary& drive) {
  JSON object = JSON::object();
  for (const DriveFact& fact : kFacts) {
    if (fact.jsonName == nullptr) continue;
    if (JSON member = fact.print.member(drive, fact.key); !member.is_null()) object[fact.jsonName] = member;
  }
  Dictionary description = drive;
  description.remove(kDiskWrapperKey);  // an object of the library, which has no text for others
  object["description"] = jsonOf(Value(description));
  return object;
}

}  // namespace kmv::tool
