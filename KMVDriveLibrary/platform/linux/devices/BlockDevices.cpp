// SPDX-License-Identifier: MIT
#include "platform/linux/devices/BlockDevices.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <algorithm>

#include "base/Text.h"
#include "platform/linux/devices/SysfsFacts.h"
#include "platform/posix/SystemFiles.h"

namespace kmv {
namespace {

constexpr int kMinorBits = 20;

bool isMemoryDisk(std::string_view name) {
  for (const std::string_view prefix : {std::string_view("ram"), std::string_view("zram")}) {
    if (name.starts_with(prefix) && parseNumber(name.substr(prefix.size()))) return true;
  }
  return false;
}

/// Where sysfs writes "!" in a name, the node is in a folder.
std::string nodeOf(std::string_view name) {
  std::string node(name);
  std::replace(node.begin(), node.end(), '!', '/');
  return node;
}

bool isWholeDisk(const std::string& folder) {
  return readAttribute(folder + "/partition").empty();
}

}  // namespace

SignatureFacts factsOf(const UdevProperties& properties) {
  SignatureFacts facts;
  facts.type = property(properties, "ID_FS_TYPE");
  facts.usage = property(properties, "ID_FS_USAGE");
  facts.version = property(properties, "ID_FS_VERSION");
  // ID_FS_LABEL has "_" in place of blanks.
  facts.label = decodeUdevText(property(properties, "ID_FS_LABEL_ENC"));
  facts.id = property(properties, "ID_FS_UUID");
  facts.tableType = property(properties, "ID_PART_TABLE_TYPE");
  facts.partitionType = property(properties, "ID_PART_ENTRY_TYPE");
  return facts;
}

BlockDevices::BlockDevices(const LinuxOptions& options)
    : sysRoot_(options.sysRoot), udevData_(options.udevDataRoot + "/data/b") {}

std::vector<BlockDevice> BlockDevices::list() const {
  std::vector<BlockDevice> devices;
  for (const std::string& name : listFolder(sysRoot_ + "/class/block")) {
    if (auto device = readNamed(name)) devices.push_back(std::move(*device));
  }
  return devices;
}

std::optional<BlockDevice> BlockDevices::read(DeviceNumber number) const {
  const std::string folder = sysRoot_ + "/dev/block";
  const std::string link = readLink(folder + "/" + toString(number));
  if (link.empty()) return std::nullopt;
  auto device = readFolder(joinLink(folder, link));
  return device && device->number == number ? device : std::nullopt;
}

std::optional<BlockDevice> BlockDevices::readBehind(const MountEntry& mount) const {
  if (mount.device.major != 0) return read(mount.device);
  constexpr std::string_view kDevFolder = "/dev/", kMapperFolder = "mapper/";
  if (!mount.source.starts_with(kDevFolder)) return std::nullopt;
  // A file system over several devices names them all, or one of them.
  std::string name = mount.source.substr(kDevFolder.size(), mount.source.find(':') - kDevFolder.size());
  if (name.starts_with(kMapperFolder)) return readNamed(nameOfMapping(name.substr(kMapperFolder.size())));
  std::replace(name.begin(), name.end(), '/', '!');
  return readNamed(name);
}

std::string BlockDevices::nameOfMapping(std::string_view mapping) const {
  const std::string folder = sysRoot_ + "/class/block";
  for (const std::string& name : listFolder(folder)) {
    if (name.starts_with("dm-") && readAttribute(folder + "/" + name + "/dm/name") == mapping) return name;
  }
  return {};
}

std::optional<BlockDevice> BlockDevices::readNamed(const std::string& name) const {
  if (name.empty()) return std::nullopt;
  const std::string folder = sysRoot_ + "/class/block";
  const std::string link = readLink(folder + "/" + name);
  return link.empty() ? std::nullopt : readFolder(joinLink(folder, link));
}

std::optional<BlockDevice> BlockDevices::readFolder(const std::string& folder) const {
  BlockDevice device;
  device.readAt = readNumber(sysRoot_ + "/kernel/uevent_seqnum");
  device.whole = isWholeDisk(folder);
  const auto number = parseDeviceNumber(requireAttribute(folder + "/dev"));
  device.bytes = parseNumber(requireAttribute(folder + "/size")).value_or(0) * kSectorBytes;
  if (!number || device.bytes == 0) return std::nullopt;
  device.number = *number;
  device.name = lastComponent(folder);
  device.node = nodeOf(device.name);
  device.offset = readNumber(folder + "/start") * kSectorBytes;
  const std::string wholeFolder(device.whole ? std::string_view(folder) : parentFolder(folder));
  // A loop device that is detached leaves its partitions behind.
  if (!device.whole && readNumber(wholeFolder + "/size") == 0) return std::nullopt;
  device.wholeNode = nodeOf(lastComponent(wholeFolder));

  const UdevProperties properties = readUdev(device.number, device.inDatabase);
  device.facts = factsOf(properties);
  device.hiddenFromUsers = property(properties, "UDISKS_IGNORE") == "1";
  const bool keptBack = property(properties, "SYSTEMD_READY") == "0" || device.hiddenFromUsers;
  // An empty optical drive has a size all the same; only udev knows whether there is a disc.
  const bool noDisc = device.name.starts_with("sr") && property(properties, "ID_CDROM_MEDIA") != "1";
  const bool hidden = readAttribute(folder + "/hidden") == "1";
  device.reportUnmounted = !keptBack && !noDisc && !hidden && !isMemoryDisk(device.name);
  device.sysfsFacts = readSysfsFacts(sysfsFacts(), folder, wholeFolder);
  readWholeDisk(wholeFolder, device);
  // A partition that goes and comes in between looks like a whole disk meanwhile (a race); its coming is announced.
  return device.whole == isWholeDisk(folder) ? std::optional(std::move(device)) : std::nullopt;
}

void BlockDevices::readWholeDisk(const std::string& folder, BlockDevice& device) const {
  const std::string_view name = lastComponent(folder);
  const bool loop = name.starts_with("loop");
  device.wholeNumber = device.whole
                           ? device.number
                           : parseDeviceNumber(readAttribute(folder + "/dev")).value_or(device.number);
  device.mediumSequence = readNumber(folder + "/diskseq");
  device.unit = device.mediumSequence != 0
                    ? static_cast<std::int64_t>(device.mediumSequence)
                    : (std::int64_t{device.wholeNumber.major} << kMinorBits | device.wholeNumber.minor);
  const Value* const flag = device.sysfsFacts.find(key::kMediaRemovable);
  const bool removable = flag != nullptr && flag->boolValue();
  const bool ejects = readAttribute(folder + "/events").find("eject_request") != std::string::npos;
  device.ejectable = removable || ejects || loop;
  const bool memoryCard = name.starts_with("mmcblk") && readAttribute(folder + "/device/type") == "SD";
  device.internal = !removable && !loop && !memoryCard && !isOnExternalBus(folder);

  bool known = false;
  const UdevProperties properties = readUdev(device.wholeNumber, known);
  device.model = trimmed(decodeUdevText(property(properties, "ID_MODEL_ENC")));
  if (device.model.empty()) device.model = readAttribute(folder + "/device/model");
  if (device.model.empty() && name.starts_with("mmcblk"))
    device.model = readAttribute(folder + "/device/name");
}

UdevProperties BlockDevices::readUdev(DeviceNumber number, bool& found) const {
  const auto text = readFile(udevData_ + toString(number));
  found = text.has_value();
  return text ? parseUdevRecord(*text) : UdevProperties();
}

/// A USB hard disk does not call itself removable; the bus of a device above it tells.
bool BlockDevices::isOnExternalBus(const std::string& folder) const {
  const std::string top = sysRoot_ + "/devices";
  for (std::string_view step = folder; step.size() > top.size(); step = parentFolder(step)) {
    const std::string bus = readLink(std::string(step) + "/subsystem");
    const std::string_view name = lastComponent(bus);
    if (name == "usb" || name == "ieee1394") return true;
  }
  return false;
}

}  // namespace kmv
