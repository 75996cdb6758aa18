// SPDX-License-Identifier: MIT
#include "platform/linux/devices/Probe.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "platform/posix/FileDescriptor.h"
#include "platform/posix/SystemFiles.h"

#ifdef KMV_WITH_BLKID
#  include <blkid/blkid.h>
#endif

namespace kmv {
namespace {

#ifdef KMV_WITH_BLKID

/// A device node that stands for `number`, open for reading; else none, with the reason in `errno`.
FileDescriptor openNode(const std::string& path, DeviceNumber number) {
  FileDescriptor node(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!node || ::fstat(node.get(), &status) != 0) return FileDescriptor();
  // A node of that name may be a leftover that stands for another device.
  const bool same = S_ISBLK(status.st_mode) && major(status.st_rdev) == number.major &&
                    minor(status.st_rdev) == number.minor;
  if (!same) errno = ENXIO;
  return same ? std::move(node) : FileDescriptor();
}

using ProbeOwner = std::unique_ptr<std::remove_pointer_t<blkid_probe>, void (*)(blkid_probe)>;

/// The bytes of a node that are read; a size of 0 is all of them.
struct Part {
  std::uint64_t offset = 0;
  std::uint64_t size = 0;
};

std::string valueOf(blkid_probe probe, const char* name) {
  const char* value = nullptr;
  std::size_t size = 0;
  if (blkid_probe_lookup_value(probe, name, &value, &size) != 0 || value == nullptr) return {};
  return std::string(value, strnlen(value, size));
}

ProbeOwner makeProbe(int node, const Part& part) {
  ProbeOwner probe(blkid_new_probe(), blkid_free_probe);
  const auto offset = static_cast<blkid_loff_t>(part.offset), size = static_cast<blkid_loff_t>(part.size);
  if (probe && blkid_probe_set_device(probe.get(), node, offset, size) != 0) probe.reset();
  return probe;
}

/// Controllers of whole disks keep their records at the disk's end, where the last partition may end too. libblkid
/// does not look for them on a partition, but would on a part of a disk.
void ignoreFormatsOfWholeDisks(blkid_probe probe) {
  static constexpr const char* kFormats[] = {"isw_raid_member",
                                             "ddf_raid_member",
                                             "lsi_mega_raid_member",
                                             "via_raid_member",
                                             "silicon_medley_raid_member",
                                             "nvidia_raid_member",
                                             "promise_fasttrack_raid_member",
                                             "highpoint_raid_member",
                                             "adaptec_raid_member",
                                             "jmicron_raid_member",
                                             nullptr};
  blkid_probe_filter_superblocks_type(probe, BLKID_FLTR_NOTIN, const_cast<char**>(kFormats));
}

std::optional<SignatureFacts> readSignatures(int node, const Part& part) {
  const ProbeOwner probe = makeProbe(node, part);
  if (!probe) return std::nullopt;
  blkid_probe_enable_superblocks(probe.get(), 1);
  blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID | BLKID_SUBLKS_TYPE |
                                                     BLKID_SUBLKS_VERSION | BLKID_SUBLKS_USAGE);
  if (part.size != 0) ignoreFormatsOfWholeDisks(probe.get());
  blkid_probe_enable_partitions(probe.get(), 1);
  blkid_probe_set_partitions_flags(probe.get(), BLKID_PARTS_ENTRY_DETAILS);
  constexpr int kNothingFound = 1;
  const int result = blkid_do_safeprobe(probe.get());
  if (result == kNothingFound) return SignatureFacts();
  if (result != 0) return std::nullopt;  // unreadable, or signatures that contradict each other
  SignatureFacts facts;
  facts.type = valueOf(probe.get(), "TYPE");
  facts.usage = valueOf(probe.get(), "USAGE");
  facts.version = valueOf(probe.get(), "VERSION");
  facts.label = valueOf(probe.get(), "LABEL");
  facts.id = valueOf(probe.get(), "UUID");
  facts.tableType = valueOf(probe.get(), "PTTYPE");
  facts.partitionType = valueOf(probe.get(), "PART_ENTRY_TYPE");
  facts.partitionName = valueOf(probe.get(), "PART_ENTRY_NAME");
  facts.partitionId = valueOf(probe.get(), "PART_ENTRY_UUID");
  return facts;
}

/// What the disk's partition table says of a partition, as the probe of a partition's own node writes it.
void readPartitionEntry(int disk, DeviceNumber partition, SignatureFacts& facts) {
  const ProbeOwner probe = makeProbe(disk, {});
  const blkid_partlist list = probe ? blkid_probe_get_partitions(probe.get()) : nullptr;
  const blkid_partition found =
      list ? blkid_partlist_devno_to_partition(list, makedev(partition.major, partition.minor)) : nullptr;
  if (found == nullptr) return;
  const auto textOf = [](const char* text) { return std::string(text == nullptr ? "" : text); };
  facts.partitionName = textOf(blkid_partition_get_name(found));
  facts.partitionId = textOf(blkid_partition_get_uuid(found));
  facts.partitionType = textOf(blkid_partition_get_type_string(found));
  if (!facts.partitionType.empty()) return;
  std::array<char, 16> number{};
  std::snprintf(number.data(), number.size(), "0x%x", static_cast<unsigned>(blkid_partition_get_type(found)));
  facts.partitionType = number.data();
}

std::optional<SignatureFacts> readPartition(int disk, const BlockDevice& device) {
  // Each node has a page cache of its own: what was written through the partition's may not show in the disk's.
  ::posix_fadvise(disk, static_cast<off_t>(device.offset), static_cast<off_t>(device.bytes),
                  POSIX_FADV_DONTNEED);
  auto facts = readSignatures(disk, {device.offset, device.bytes});
  if (facts) readPartitionEntry(disk, device.number, *facts);
  return facts;
}

ProbeResult probeNodes(const LinuxOptions& options, const ProbeRequest& request) {
  const BlockDevice& device = request.device;
  const FileDescriptor disk = openNode(options.devRoot + "/" + device.wholeNode, device.wholeNumber);
  if (!disk && isShortage(errno)) return {std::nullopt, /*isDeferred=*/true};
  if (disk && ::flock(disk.get(), LOCK_SH | LOCK_NB) != 0) return {std::nullopt, /*isDeferred=*/true};
  if (disk && device.whole) return {readSignatures(disk.get(), {})};
  if (disk && request.mountedKind.empty()) return {readPartition(disk.get(), device)};
  // In use anyway; or this process has been given the partition without its disk, as in a container.
  const FileDescriptor own = openNode(options.devRoot + "/" + device.node, device.number);
  if (!own) return {std::nullopt, isShortage(errno)};
  return {readSignatures(own.get(), {})};
}

#else

ProbeResult probeNodes(const LinuxOptions&, const ProbeRequest&) {
  return {};
}

#endif

/// What the kernel tells everybody about a mounted btrfs; none when the device is in no such file system.
std::optional<SignatureFacts> readMountedBtrfs(const LinuxOptions& options, const BlockDevice& device) {
  const std::string folder = options.sysRoot + "/fs/btrfs";
  for (const std::string& id : listFolder(folder)) {
    const std::string fileSystem = folder + "/" + id;
    if (readLink(fileSystem + "/devices/" + device.name).empty()) continue;
    SignatureFacts facts = device.facts;
    facts.type = "btrfs";
    facts.usage = "filesystem";
    facts.id = id;
    facts.label = readAttribute(fileSystem + "/label");
    return facts;
  }
  return std::nullopt;
}

}  // namespace

ProbeResult probeDevice(const LinuxOptions& options, const ProbeRequest& request) try {
  ProbeResult result = probeNodes(options, request);
  if (!result.facts && !result.isDeferred && request.mountedKind == "btrfs")
    result.facts = readMountedBtrfs(options, request.device);
  return result;
} catch (const NotReadable&) {
  return {std::nullopt, /*isDeferred=*/true};
}

}  // namespace kmv
