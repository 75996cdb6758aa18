// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Degradation.h>
#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/KMVAPFSContainerWrapper.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>
#include <KMVDriveLibrary/KMVRootDiskWrapper.h>
#include <KMVDriveLibrary/NumberOrder.h>
#include <KMVDriveLibrary/StorageDevices.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "kmvdrive/CommandLine.h"
#include "kmvdrive/DriveFacts.h"
#include "kmvdrive/InitialReport.h"

namespace kmv::tool {
namespace {

// --- What the registry knows of disks ---

/// A partition, or a volume of a container: everything that bears one BSD name.
struct StoragePart {
  std::string name;
  std::vector<DictionarySnapshot> drives;  ///< what is mounted from it; or its description when nothing is
  bool isMounted = false;
};

struct StorageContainer {
  std::string name;
  std::vector<StoragePart> volumes;
};

struct StorageDisk {
  Value unit = 0;
  std::string name;  ///< of the whole disk; empty when it is not known
  std::string model;
  std::optional<std::int64_t> bytes;
  std::vector<StorageDevice> physicalDisks;
  std::vector<StoragePart> partitions;
  std::vector<StorageContainer> containers;
};

/// The first element of this name, added when there is none.
template <typename Element>
Element& named(std::vector<Element>& elements, const std::string& name) {
  const auto found = std::find_if(elements.begin(), elements.end(),
                                  [&](const auto& element) { return element.name == name; });
  if (found != elements.end()) return *found;
  elements.push_back({});
  elements.back().name = name;
  return elements.back();
}

std::string textOf(const std::optional<Value>& name) {
  return name ? name->description() : std::string();
}

std::shared_ptr<KMVDiskBSDBaseWrapper> wrapperOf(const Dictionary& drive) {
  const Value* value = drive.find(kDiskWrapperKey);
  return value == nullptr ? nullptr : std::dynamic_pointer_cast<KMVDiskBSDBaseWrapper>(value->asObject());
}

using Disks = std::map<Value, StorageDisk, NumberOrder>;

void addMounted(Disks& disks, const DictionarySnapshot& drive) {
  const auto wrapper = wrapperOf(*drive);
  const auto root = wrapper == nullptr ? nullptr : wrapper->rootVolumeWrapper();
  const auto unit = root == nullptr ? std::nullopt : root->bsdUnit();
  if (!unit) return;
  StorageDisk& disk = disks[*unit];
  const auto volume = std::dynamic_pointer_cast<KMVAPFSVolumeWrapper>(wrapper);
  const auto container = volume == nullptr ? nullptr : volume->parentContainerWrapper();
  auto& parts =
      container == nullptr ? disk.partitions : named(disk.containers, textOf(container->bsdName())).volumes;
  StoragePart& part = named(parts, textOf(wrapper->bsdName()));
  part.isMounted = true;
  part.drives.push_back(drive);
}

/// Some platforms report the disk beside its partitions: it is none of them.
bool isWholeDiskWithoutVolume(const Dictionary& description) {
  return description.boolValue(key::kMediaWhole) == true &&
         description.boolValue(key::kVolumeMountable) == false;
}

void addUnmounted(Disks& disks, const DictionarySnapshot& description) {
  const Value* unit = description->find(key::kMediaBSDUnit);
  const std::string* name = description->text(key::kMediaBSDName);
  if (unit == nullptr || !unit->isNumber() || name == nullptr) return;
  StorageDisk& disk = disks[*unit];
  if (isWholeDiskWithoutVolume(*description)) {
    disk.name = *name;
    return;
  }
  StoragePart& part = named(disk.partitions, *name);
  if (part.drives.empty()) part.drives.push_back(description);
}

void complete(StorageDisk& disk, const Value& unit) {
  disk.unit = unit;
  const auto byName = [](const auto& a, const auto& b) {
    return a.name.size() != b.name.size() ? a.name.size() < b.name.size()
                                          : a.name < b.name;  // sda2 before sda10
  };
  std::sort(disk.partitions.begin(), disk.partitions.end(), byName);
  std::sort(disk.containers.begin(), disk.containers.end(), byName);
  for (StorageContainer& container : disk.containers)
    std::sort(container.volumes.begin(), container.volumes.end(), byName);
  const std::string device = !disk.partitions.empty()   ? disk.partitions.front().name
                             : !disk.containers.empty() ? disk.containers.front().name
                                                        : disk.name;
  if (const auto whole = wholeDiskOf(device)) {
    disk.name = whole->name;
    disk.model = whole->model;
    disk.bytes = whole->bytes;
  }
  disk.physicalDisks = physicalDisksBelow(device);
}

/// Mounted drives by the wrappers that they carry, and the disks that are not mounted by their units. Drives
/// without a device (network, FUSE) belong to no disk. In ascending order of the units.
std::vector<StorageDisk> readStorageDisks(const KMVDiskArbiter& arbiter) {
  Disks disks;
  for (const auto& [url, drive] : arbiter.mountedDictionaries()) addMounted(disks, drive);
  for (const auto& description : arbiter.unmountedDictionaries()) addUnmounted(disks, description);
  std::vector<StorageDisk> all;
  for (auto& [unit, disk] : disks) {
    complete(disk, unit);
    all.push_back(std::move(disk));
  }
  return all;
}

// --- As JSON ---

JSON jsonOfPart(const StoragePart& part) {
  JSON object = {{"name", part.name}};
  if (!part.drives.empty()) {
    JSON facts = jsonOfDrive(*part.drives.front());
    for (const auto& [key, jsonKey] :
         {std::pair("name", "volumeName"), std::pair("kind", "kind"), std::pair("uuid", "uuid")}) {
      if (facts.contains(key)) object[jsonKey] = facts[key];
    }
    if (const Value* size = part.drives.front()->find(key::kMediaSize)) object["size"] = jsonOfInteger(*size);
  }
  object["mountPoints"] = JSON::array();
  for (const auto& drive : part.drives) {
    if (const URL* url = drive->url(key::kVolumePath)) object["mountPoints"].push_back(url->path());
  }
  return object;
}

JSON jsonOfParts(const std::vector<StoragePart>& parts) {
  JSON array = JSON::array();
  for (const StoragePart& part : parts) array.push_back(jsonOfPart(part));
  return array;
}

JSON jsonOfStorage(const std::vector<StorageDisk>& disks) {
  JSON document = {{"disks", JSON::array()}};
  for (const StorageDisk& disk : disks) {
    JSON object = {{"unit", jsonOf(disk.unit)}, {"name", disk.name}};
    if (!disk.model.empty()) object["model"] = disk.model;
    if (disk.bytes) object["size"] = *disk.bytes;
    object["physicalDisks"] = JSON::array();
    for (const StorageDevice& physical : disk.physicalDisks) {
      JSON device = {{"name", physical.name}, {"size", physical.bytes}};
      if (!physical.model.empty()) device["model"] = physical.model;
      object["physicalDisks"].push_back(std::move(device));
    }
    object["partitions"] = jsonOfParts(disk.partitions);
    object["containers"] = JSON::array();
    for (const StorageContainer& container : disk.containers)
      object["containers"].push_back({{"name", container.name}, {"volumes", jsonOfParts(container.volumes)}});
    document["disks"].push_back(std::move(object));
  }
  addDegradations(document);
  return document;
}

// --- As a tree ---

struct Line {
  std::string text;
  bool isDim = false;
  std::vector<Line> below = {};
};

std::string joined(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words) {
    if (word.empty()) continue;
    if (!text.empty()) text += "  ";
    text += visibleText(word);
  }
  return text;
}

Line lineOf(const StoragePart& part) {
  const DriveSummary summary = part.drives.empty() ? DriveSummary() : summaryOf(*part.drives.front());
  const std::string name = summary.name.empty() ? std::string() : "\"" + summary.name + "\"";
  std::vector<std::string> words{part.name, summary.size, summary.kind, name};
  for (const auto& drive : part.drives) words.push_back(summaryOf(*drive).mountPoint);
  if (!part.isMounted) words.emplace_back("not mounted");
  return {joined(words), !part.isMounted};
}

Line lineOf(const StorageDisk& disk) {
  std::string below;
  for (const StorageDevice& physical : disk.physicalDisks) {
    if (physical.name == disk.name) continue;
    below += (below.empty() ? "on " : ", ") + physical.name;
  }
  Line line{joined({disk.name.empty() ? "disk " + disk.unit.description() : disk.name,
                    disk.bytes ? sizeText(static_cast<std::uint64_t>(*disk.bytes)) : std::string(),
                    disk.model, below})};
  for (const StoragePart& partition : disk.partitions) line.below.push_back(lineOf(partition));
  for (const StorageContainer& container : disk.containers) {
    line.below.push_back({joined({container.name, "container"})});
    for (const StoragePart& volume : container.volumes) line.below.back().below.push_back(lineOf(volume));
  }
  return line;
}

void print(const std::vector<Line>& lines, const std::string& margin, const Style& style, std::string& out) {
  for (const Line& line : lines) {
    const bool isLast = &line == &lines.back();
    out += margin + (isLast ? "└─ " : "├─ ") +
           style.apply(line.isDim ? Style::Look::dim : Style::Look::plain, line.text) + "\n";
    print(line.below, margin + (isLast ? "   " : "│  "), style, out);
  }
}

std::string textOfStorage(const std::vector<StorageDisk>& disks, const Style& style) {
  if (disks.empty()) return degradations().empty() ? "No disks are there.\n" : "";
  std::string out;
  for (const StorageDisk& disk : disks) {
    const Line line = lineOf(disk);
    out += style.apply(Style::Look::heading, line.text) + "\n";
    print(line.below, "", style, out);
  }
  return out;
}

struct TreeOptions {
  bool json = false;
};

ExitCode tree(CommandContext& context, const TreeOptions& options) {
  if (!awaitInitialReport(context.loop)) return ExitCode::ok;
  const auto disks = readStorageDisks(KMVDiskArbiter::sharedInstance());
  context.output.write(options.json ? jsonLine(jsonOfStorage(disks)) : textOfStorage(disks, context.style));
  return ExitCode::ok;
}

}  // namespace

void addTreeCommand(CLI::App& app, Action& chosen) {
  CLI::App* command =
      app.add_subcommand("tree", "Show disks, their partitions and what is mounted from them");
  const auto options = optionsOf(*command, chosen, tree);
  command->add_flag("--json", options->json, "Print one JSON object");
}

}  // namespace kmv::tool
