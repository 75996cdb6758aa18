// SPDX-License-Identifier: MIT
#include "kmvdrive/DriveFacts.h"

#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <iterator>
#include <string_view>
#include <utility>

#include "kmvdrive/Screen.h"

namespace kmv::tool {
namespace {

/// How a kind of value is shown: as a JSON member (null: left out) and as a cell (empty: not known).
struct Print {
  JSON (*member)(const Dictionary& drive, std::string_view key);
  std::string (*cell)(const Dictionary& drive, std::string_view key) = nullptr;  ///< null: the member's text
  Table::Align align = Table::Align::left;
  std::uint64_t (*bytes)(const Dictionary& drive,
                         std::string_view key) = nullptr;  ///< of a cell that has some

  std::string text(const Dictionary& drive, std::string_view key, bool exactBytes = false) const {
    if (cell != nullptr) {
      std::string shown = cell(drive, key);
      return exactBytes && bytes != nullptr && !shown.empty() ? std::to_string(bytes(drive, key)) : shown;
    }
    const JSON value = member(drive, key);
    return value.is_null() ? std::string() : value.is_string() ? value.get<std::string>() : value.dump();
  }
};

JSON textOrNone(const Dictionary& drive, std::string_view key) {
  const std::string* text = drive.text(key);
  return text == nullptr ? JSON() : JSON(*text);
}

std::uint64_t bytesOf(const Dictionary& drive, std::string_view key) {
  const Value* size = drive.find(key);
  return size == nullptr || !size->isNumber() || size->doubleValue() < 0 ? 0 : size->unsignedValue();
}

const Dictionary* spaceOf(const Dictionary& drive) {
  const Value* space = drive.find(kSpaceKey);
  return space == nullptr ? nullptr : space->asDictionary();
}

/// What has no medium of its own is as large as its file system.
std::uint64_t sizeInBytes(const Dictionary& drive, std::string_view key) {
  const Dictionary* const space = spaceOf(drive);
  return !drive.contains(key) && space != nullptr ? bytesOf(*space, "total") : bytesOf(drive, key);
}

std::string sizeCell(const Dictionary& drive, std::string_view key) {
  const std::uint64_t bytes = sizeInBytes(drive, key);
  return bytes == 0 ? std::string() : sizeText(bytes);
}

std::uint64_t usedBytes(const Dictionary& drive, std::string_view) {
  const Dictionary& space = *spaceOf(drive);
  return bytesOf(space, "total") - bytesOf(space, "free");
}

std::uint64_t availableBytes(const Dictionary& drive, std::string_view) {
  return bytesOf(*spaceOf(drive), "available");
}

std::string usedCell(const Dictionary& drive, std::string_view) {
  return spaceOf(drive) == nullptr ? std::string() : sizeText(usedBytes(drive, {}));
}

std::string availableCell(const Dictionary& drive, std::string_view) {
  return spaceOf(drive) == nullptr ? std::string() : sizeText(availableBytes(drive, {}));
}

/// "#####-----  47%": of what a user without privileges could use, rounded up.
std::string useCell(const Dictionary& drive, std::string_view) {
  if (spaceOf(drive) == nullptr) return {};
  const std::uint64_t used = usedBytes(drive, {}), usable = used + availableBytes(drive, {});
  if (usable == 0) return {};
  constexpr std::size_t kBar = 10;
  const auto percent =
      static_cast<std::size_t>(std::ceil(100.0 * static_cast<double>(used) / static_cast<double>(usable)));
  const std::size_t full = std::min(kBar, percent * kBar / 100);
  std::string bar;
  for (std::size_t i = 0; i < kBar; ++i)
    bar += showsUTF8() ? (i < full ? "\u2588" : "\u2591") : (i < full ? "#" : "-");
  const std::string number = std::to_string(percent);
  return bar + std::string(number.size() < 3 ? 4 - number.size() : 1, ' ') + number + "%";
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
                   sizeCell, Table::Align::right, sizeInBytes};
const Print kUsed{textOrNone, usedCell, Table::Align::right, usedBytes};
const Print kAvailable{textOrNone, availableCell, Table::Align::right, availableBytes};
const Print kUse{textOrNone, useCell, Table::Align::right};
const Print kSpace{[](const Dictionary& drive, std::string_view) {
  const Dictionary* const space = spaceOf(drive);
  return space == nullptr ? JSON() : jsonOf(Value(*space));
}};

/// Where `list` shows a fact beside the JSON: its columns, those of `list -v`, or as a word among the flags.
enum class Shown { nowhere, always, whenMounted, verbosely, asFlag };

struct DriveFact {
  std::string_view key;
  const char* jsonName;  // null: it is only in "description"
  const char* label;     // the column's heading, or the flag
  const Print& print;
  Shown shown;
  int worth = 0;  // of the column
};

std::string flagsCell(const Dictionary& drive, std::string_view);
const Print kFlags{textOrNone, flagsCell};

// JSON members and columns come in this order, which scripts may rely on; hence two lines for some keys.
//
// A new description key is one more line at the end.
const DriveFact kFacts[] = {
    {key::kMediaBSDName, nullptr, "DEVICE", kText, Shown::always, 95},
    {key::kVolumePath, "url", nullptr, kURL, Shown::nowhere},
    {key::kVolumePath, "path", nullptr, kPath, Shown::nowhere},
    {key::kVolumeName, "name", "NAME", kText, Shown::always, 90},
    {key::kVolumeKind, "kind", "KIND", kText, Shown::always, 55},
    {key::kMediaSize, nullptr, "SIZE", kBytes, Shown::always, 80},
    {kSpaceKey, nullptr, "USED", kUsed, Shown::whenMounted, 60},
    {kSpaceKey, nullptr, "FREE", kAvailable, Shown::whenMounted, 85},
    {kSpaceKey, nullptr, "USE", kUse, Shown::whenMounted, 75},
    {key::kVolumePath, nullptr, "MOUNT POINT", kPath, Shown::whenMounted, 100},
    {key::kDeviceProtocol, nullptr, "BUS", kText, Shown::always, 40},
    {key::kDeviceModel, nullptr, "MODEL", kText, Shown::always, 35},
    {"", nullptr, "FLAGS", kFlags, Shown::always, 50},
    {kDiskUUIDKey, "uuid", "UUID", kIdentity, Shown::always, 20},
    {key::kMediaBSDName, "bsdName", nullptr, kText, Shown::nowhere},
    {kDiskRemoveableKey, "removable", "removable", kTruth, Shown::asFlag},
    {key::kMediaEjectable, nullptr, "ejectable", kTruth, Shown::asFlag},
    {kDiskMountedPriorToApplicationInstance, "mountedBeforeStart", nullptr, kTruth, Shown::nowhere},
    {key::kVolumeNetwork, "network", "network", kTruth, Shown::asFlag},
    {key::kAppearanceTime, "appeared", nullptr, kReal, Shown::nowhere},
    {key::kMediaSize, "size", nullptr, kBytes, Shown::nowhere},
    {kSpaceKey, "space", nullptr, kSpace, Shown::nowhere},
    {key::kDeviceProtocol, "protocol", nullptr, kText, Shown::nowhere},
    {key::kDeviceVendor, "vendor", "VENDOR", kText, Shown::verbosely, 10},
    {key::kDeviceModel, "model", nullptr, kText, Shown::nowhere},
    {key::kDeviceSerial, "serial", "SERIAL", kText, Shown::verbosely, 15},
    {key::kDeviceRevision, "revision", nullptr, kText, Shown::nowhere},
    {key::kDeviceRotational, "rotational", nullptr, kTruth, Shown::nowhere},
    {key::kMediaWritable, "writable", nullptr, kTruth, Shown::nowhere},
    {key::kMediaBlockSize, "blockSize", nullptr, kBytes, Shown::nowhere},
    {key::kMediaName, "partitionName", "PARTITION", kText, Shown::verbosely, 12},
    {key::kMediaUUID, "partitionUUID", nullptr, kUUIDText, Shown::nowhere},
    {key::kVolumeIdentifier, "identifier", nullptr, kText, Shown::nowhere},
    {kCodexKey, nullptr, "CODEX", kText, Shown::verbosely, 45},
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

bool isUsual(const DriveFact& fact, const DriveTable& table) {
  switch (fact.shown) {
    case Shown::always:
      return true;
    case Shown::whenMounted:
      return table.isOfMounted;
    case Shown::verbosely:
      return table.isVerbose;
    case Shown::nowhere:
    case Shown::asFlag:
      break;
  }
  return false;
}

bool isColumn(const DriveFact& fact) {
  return fact.shown != Shown::nowhere && fact.shown != Shown::asFlag;
}

/// "mountpoint" of "MOUNT POINT".
std::string columnName(const DriveFact& fact) {
  std::string name;
  for (const char* c = fact.label; *c != '\0'; ++c) {
    if (*c != ' ') name += static_cast<char>(*c | 0x20);
  }
  return name;
}

std::vector<const DriveFact*> columnsOf(const DriveTable& table) {
  std::vector<const DriveFact*> columns;
  if (table.columns.empty()) {
    for (const DriveFact& fact : kFacts) {
      if (isColumn(fact) && isUsual(fact, table)) columns.push_back(&fact);
    }
  }
  for (const std::string& name : table.columns) {
    const auto* const fact = std::find_if(std::begin(kFacts), std::end(kFacts), [&](const DriveFact& one) {
      return isColumn(one) && columnName(one) == name;
    });
    if (fact != std::end(kFacts)) columns.push_back(fact);
  }
  return columns;
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

std::vector<std::string> columnNames() {
  std::vector<std::string> names;
  for (const DriveFact& fact : kFacts) {
    if (isColumn(fact)) names.push_back(columnName(fact));
  }
  return names;
}

Table tableOf(const DriveTable& what, const std::vector<Dictionary>& drives) {
  const auto facts = columnsOf(what);
  std::vector<Table::Column> columns;
  columns.reserve(facts.size());
  for (const DriveFact* fact : facts) columns.push_back({fact->label, fact->print.align, fact->worth});
  Table table(std::move(columns));
  for (const Dictionary& drive : drives) {
    std::vector<std::string> cells;
    cells.reserve(facts.size());
    for (const DriveFact* fact : facts)
      cells.push_back(fact->print.text(drive, fact->key, what.showsExactBytes));
    table.addRow(std::move(cells));
  }
  return table;
}

void setSpace(Dictionary& drive, const Space& space) {
  drive.set(kSpaceKey, Dictionary{{"total", space.total},
                                  {"free", space.free},
                                  {"available", space.available},
                                  {"readOnly", space.isReadOnly}});
}

JSON jsonOfDrive(const Dictionary& drive) {
  JSON object = JSON::object();
  for (const DriveFact& fact : kFacts) {
    if (fact.jsonName == nullptr) continue;
    if (JSON member = fact.print.member(drive, fact.key); !member.is_null()) object[fact.jsonName] = member;
  }
  Dictionary description = drive;
  for (const auto own : {std::string_view(kSpaceKey), std::string_view(kCodexKey)}) description.remove(own);
  description.remove(kDiskWrapperKey);  // an object of the library, which has no text for others
  object["description"] = jsonOf(Value(description));
  return object;
}

}  // namespace kmv::tool
