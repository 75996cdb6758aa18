// SPDX-License-Identifier: MIT
#include "platform/linux/devices/BlockDevices.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <algorithm>
#include <iterator>
#include <utility>

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
  facts.partitionName = decodeUdevText(property(properties, "ID_PART_ENTRY_NAME"));
  facts.partitionId = property(properties, "ID_PART_ENTRY_UUID");
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
  device.hardwareFacts = readSysfsFacts(sysfsFacts(), folder, wholeFolder);
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
  const Value* const flag = device.hardwareFacts.find(key::kMediaRemovable);
  const bool removable = flag != nullptr && flag->boolValue();
  const bool ejects = readAttribute(folder + "/events").find("eject_request") != std::string::npos;
  device.ejectable = removable || ejects || loop;
  const bool memoryCard = name.starts_with("mmcblk") && readAttribute(folder + "/device/type") == "SD";
  const Hardware hardware = hardwareOf(folder, device);
  device.internal = !removable && !loop && !memoryCard && !hardware.isExternal;
  device.hardwareFacts.merge(hardware.facts);

  bool known = false;
  const UdevProperties properties = readUdev(device.wholeNumber, known);
  device.model = trimmed(decodeUdevText(property(properties, "ID_MODEL_ENC")));
  if (device.model.empty()) device.model = readAttribute(folder + "/device/model");
  if (device.model.empty() && name.starts_with("mmcblk"))
    device.model = readAttribute(folder + "/device/name");
  constexpr std::pair<const char*, const char*> kNamedByUdev[] = {{key::kDeviceVendor, "ID_VENDOR_ENC"},
                                                                  {key::kDeviceRevision, "ID_REVISION"},
                                                                  {key::kDeviceSerial, "ID_SERIAL_SHORT"}};
  for (const auto& [fact, udevName] : kNamedByUdev) {
    const std::string text(trimmed(decodeUdevText(property(properties, udevName))));
    if (!text.empty()) device.hardwareFacts.set(fact, text);
  }
}

UdevProperties BlockDevices::readUdev(DeviceNumber number, bool& found) const {
  const auto text = readFile(udevData_ + toString(number));
  found = text.has_value();
  return text ? parseUdevRecord(*text) : UdevProperties();
}

/// A read of sysfs costs about 9 us: a mount of a known disk would cost three times as much with these.
BlockDevices::Hardware BlockDevices::hardwareOf(const std::string& folder, const BlockDevice& device) const {
  constexpr std::size_t kMostKept = 1024;
  {
    const MutexLock lock(mutex_);
    const auto known = hardware_.find(device.wholeNumber);
    const bool isSame = known != hardware_.end() && device.mediumSequence != 0 &&
                        known->second.mediumSequence == device.mediumSequence;
    if (isSame) return known->second;
  }
  Hardware read = readHardware(folder);
  read.mediumSequence = device.mediumSequence;
  const MutexLock lock(mutex_);
  if (hardware_.size() >= kMostKept) hardware_.clear();
  hardware_.insert_or_assign(device.wholeNumber, read);
  return read;
}

/// By the devices above the disk, the nearest first. A USB hard disk does not call itself removable, but its bus does;
/// what hangs on a cable of PCI (Thunderbolt) has a device above it that the firmware calls removable.
BlockDevices::Hardware BlockDevices::readHardware(const std::string& folder) const {
  static constexpr std::pair<std::string_view, std::string_view> kProtocols[] = {
      {"usb", "USB"}, {"ieee1394", "FireWire"}, {"nvme", "NVMe"}, {"mmc", "MMC"}, {"virtio", "Virtual"}};
  const std::string top = sysRoot_ + "/devices";
  Hardware hardware{0, readSysfsFacts(lastingSysfsFacts(), folder, folder), false};
  std::string_view protocol;
  bool isSCSI = false;
  for (std::string_view step = folder; step.size() > top.size(); step = parentFolder(step)) {
    const std::string path(step), link = readLink(path + "/subsystem");
    const std::string_view bus = lastComponent(link), name = lastComponent(step);
    const auto* const known = std::find_if(std::begin(kProtocols), std::end(kProtocols),
                                           [bus](const auto& one) { return one.first == bus; });
    const bool isATA = name.starts_with("ata") && parseNumber(name.substr(3));
    if (protocol.empty()) protocol = known != std::end(kProtocols) ? known->second : isATA ? "SATA" : "";
    const bool isCable = bus == "pci" && readAttribute(path + "/removable") == "removable";
    hardware.isExternal = hardware.isExternal || isCable || bus == "usb" || bus == "ieee1394";
    isSCSI = isSCSI || bus == "scsi";
  }
  if (protocol == "MMC" && readAttribute(folder + "/device/type") == "SD") protocol = "SD";
  if (protocol.empty()) protocol = folder.starts_with(top + "/virtual/") ? "Virtual" : isSCSI ? "SCSI" : "";
  if (!protocol.empty()) hardware.facts.set(key::kDeviceProtocol, protocol);
  return hardware;
}

}  // namespace kmv
