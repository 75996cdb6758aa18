// SPDX-License-Identifier: MIT
#include "platform/linux/devices/Probe.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cstring>
#include <memory>
#include <string>

#include "platform/posix/FileDescriptor.h"
#include "platform/posix/SystemFiles.h"

#ifdef KMV_WITH_BLKID
#  include <blkid/blkid.h>
#endif

namespace kmv {
namespace {

#ifdef KMV_WITH_BLKID

using ProbeOwner = std::unique_ptr<std::remove_pointer_t<blkid_probe>, void (*)(blkid_probe)>;

std::string valueOf(blkid_probe probe, const char* name) {
  const char* value = nullptr;
  std::size_t size = 0;
  if (blkid_probe_lookup_value(probe, name, &value, &size) != 0 || value == nullptr) return {};
  return std::string(value, strnlen(value, size));
}

std::optional<SignatureFacts> readSignatures(int device) {
  const ProbeOwner probe(blkid_new_probe(), blkid_free_probe);
  if (!probe || blkid_probe_set_device(probe.get(), device, 0, 0) != 0) return std::nullopt;
  blkid_probe_enable_superblocks(probe.get(), 1);
  blkid_probe_set_superblocks_flags(probe.get(), BLKID_SUBLKS_LABEL | BLKID_SUBLKS_UUID | BLKID_SUBLKS_TYPE |
                                                     BLKID_SUBLKS_VERSION | BLKID_SUBLKS_USAGE);
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
  return facts;
}

std::optional<SignatureFacts> probeNode(const LinuxOptions& options, const BlockDevice& device) {
  const std::string path = options.devRoot + "/" + device.node;
  const FileDescriptor node(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  struct stat status {};
  if (!node || ::fstat(node.get(), &status) != 0) return std::nullopt;
  // A node of that name may be a leftover that stands for another device.
  const bool same = S_ISBLK(status.st_mode) && major(status.st_rdev) == device.number.major &&
                    minor(status.st_rdev) == device.number.minor;
  return same ? readSignatures(node.get()) : std::nullopt;
}

#else

std::optional<SignatureFacts> probeNode(const LinuxOptions&, const BlockDevice&) {
  return std::nullopt;
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

std::optional<SignatureFacts> probeDevice(const LinuxOptions& options, const ProbeRequest& request) {
  auto facts = probeNode(options, request.device);
  if (!facts && request.mountedKind == "btrfs") facts = readMountedBtrfs(options, request.device);
  return facts;
}

}  // namespace kmv
