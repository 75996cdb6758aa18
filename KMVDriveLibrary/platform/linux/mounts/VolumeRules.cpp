// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/VolumeRules.h"

#include <algorithm>
#include <array>

namespace kmv {
namespace {

constexpr std::uint32_t kLoopMajor = 7;

template <std::size_t N>
bool contains(const std::array<std::string_view, N>& kinds, std::string_view kind) {
  return std::find(kinds.begin(), kinds.end(), kind) != kinds.end();
}

constexpr std::array<std::string_view, 19> kNetworkKinds{
    "nfs",        "nfs4",        "cifs",           "smb3",       "smbfs",       "ncpfs",          "afs",
    "ceph",       "9p",          "coda",           "fuse.sshfs", "fuse.rclone", "fuse.glusterfs", "fuse.s3fs",
    "fuse.davfs", "fuse.davfs2", "fuse.curlftpfs", "fuse.ceph",  "fuse.cephfs"};

constexpr std::array<std::string_view, 7> kHelperKinds{
    "fuse.portal",   "fuse.gvfsd-fuse", "fuse.gvfs-fuse-daemon", "fuse.lxcfs",
    "fuse.snapfuse", "fuse.squashfuse", "fuse.vmware-vmblock"};

constexpr std::array<std::string_view, 24> kLocalKinds{
    "ext2",  "ext3",  "ext4",     "xfs",    "btrfs",   "bcachefs", "zfs",     "f2fs",
    "jfs",   "vfat",  "exfat",    "ntfs3",  "hfsplus", "udf",      "hfs",     "erofs",
    "tmpfs", "ramfs", "devtmpfs", "rootfs", "proc",    "sysfs",    "iso9660", "squashfs"};

/// File systems with storage behind them whose device number is anonymous.
constexpr std::array<std::string_view, 2> kMultiDeviceKinds{"btrfs", "bcachefs"};

}  // namespace

bool isFuseKind(std::string_view kind) {
  return kind == "fuse" || kind == "fuseblk" || kind.starts_with("fuse.") || kind.starts_with("fuseblk.");
}

bool isNetworkKind(std::string_view kind) {
  return contains(kNetworkKinds, kind);
}

bool isLocalKind(std::string_view kind) {
  return contains(kLocalKinds, kind);
}

bool isBlockBacked(const MountEntry& entry) {
  if (entry.device.major != 0) return true;
  return contains(kMultiDeviceKinds, entry.kind) && entry.source.starts_with("/dev/");
}

std::string_view ownRule(const MountEntry& entry) {
  if (contains(kHelperKinds, entry.kind)) return rule::kHelper;
  const bool snapPlace = entry.point.starts_with("/snap/") || entry.point.starts_with("/var/lib/snapd/");
  if (entry.kind == "squashfs" && entry.device.major == kLoopMajor && snapPlace) return rule::kSnap;
  // A pool's data sets have neither a device number nor a device's name, but hold the machine's files.
  const bool volume =
      isBlockBacked(entry) || isFuseKind(entry.kind) || isNetworkKind(entry.kind) || entry.kind == "zfs";
  return volume ? std::string_view() : rule::kPseudo;
}

bool showsWholeVolume(const MountEntry& entry) {
  if (entry.root == "/") return true;
  if (entry.kind != "btrfs") return false;
  const auto subvolume = mountOption(entry.superOptions, "subvol");
  return subvolume && decodeOctal(*subvolume) == entry.root;
}

PathRange pathsBelow(std::string_view folder) {
  const std::string base(folder == "/" ? std::string_view() : folder);
  static_assert('/' + 1 == '0');
  return {base + '/', base + '0'};
}

}  // namespace kmv
