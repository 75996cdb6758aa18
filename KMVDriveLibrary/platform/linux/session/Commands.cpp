// SPDX-License-Identifier: MIT
#include "platform/linux/session/Commands.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <fcntl.h>
#include <linux/fs.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "platform/linux/mounts/MountId.h"
#include "platform/linux/mounts/VolumeRules.h"
#include "platform/linux/session/FuseHelper.h"
#include "platform/linux/session/Holders.h"
#include "platform/linux/session/UDisks.h"
#include "platform/posix/FileDescriptor.h"

namespace kmv {
namespace dissent {

std::int32_t ofError(int error) {
  switch (error) {
    case EBUSY:
      return kBusy;
    case EPERM:
      return kNotPrivileged;
    case EACCES:
      return kNotPermitted;
    case EINVAL:
      return kNotMounted;
    case EROFS:
      return kNotWritable;
    case ENOTTY:
    case EOPNOTSUPP:
      return kUnsupported;
    case ENOENT:
    case ENODEV:
      return kNotFound;
    default:
      return kError;
  }
}

std::int32_t ofErrorName(std::string_view name) {
  constexpr std::string_view kPrefix = "org.freedesktop.UDisks2.Error.";
  constexpr std::array<std::pair<std::string_view, std::int32_t>, 9> kCodes{{
      {"DeviceBusy", kBusy},
      {"NotAuthorized", kNotPrivileged},
      {"NotAuthorizedCanObtain", kNotPrivileged},
      {"NotAuthorizedDismissed", kNotPrivileged},
      {"OptionNotPermitted", kNotPrivileged},
      {"MountedByOtherUser", kNotPermitted},
      {"NotMounted", kNotMounted},
      {"AlreadyUnmounting", kNotMounted},
      {"NotSupported", kUnsupported},
  }};
  if (!name.starts_with(kPrefix)) return kError;
  name.remove_prefix(kPrefix.size());
  const auto* const found =
      std::find_if(kCodes.begin(), kCodes.end(), [&](const auto& entry) { return entry.first == name; });
  return found == kCodes.end() ? kError : found->second;
}

}  // namespace dissent

namespace {

Dissent refusal(std::int32_t status, std::optional<pid_t> holder = std::nullopt) {
  if (status == dissent::kDone) return std::nullopt;
  Dictionary record{{key::kDissenterStatus, status}};
  if (holder) record.set(key::kDissenterProcessID, *holder);
  return record;
}

bool isOwnFuseMount(const MountEntry& entry) {
  return isFuseKind(entry.kind) && mountOption(entry.superOptions, "user_id") == std::to_string(::getuid());
}

/// UDisks knows devices; a server's mount is none of its business.
bool isForUDisks(const TargetVolume& volume) {
  return !volume.deviceNode.empty() && !isNetworkKind(volume.kind);
}

std::int32_t statusOf(const UDisksReply& reply) {
  switch (reply.kind) {
    case UDisksReply::Kind::done:
      return dissent::kDone;
    case UDisksReply::Kind::unreachable:
      return dissent::kNotPrivileged;
    case UDisksReply::Kind::badName:
      return dissent::kBadArgument;
    case UDisksReply::Kind::refused:
      break;
  }
  return dissent::ofErrorName(reply.error);
}

/// The file systems whose names have a known limit in bytes, and whether a mounted one takes a name from the
/// kernel.
struct NameRule {
  std::string_view kind;
  std::size_t mostBytes;
  bool byKernel;
};
constexpr std::array<NameRule, 7> kNameRules{{{"ext2", 16, true},
                                              {"ext3", 16, true},
                                              {"ext4", 16, true},
                                              {"xfs", 12, true},
                                              {"btrfs", 255, true},
                                              {"vfat", 11, false},
                                              {"msdos", 11, false}}};
constexpr std::size_t kNameBuffer = FSLABEL_MAX;

const NameRule* nameRuleOf(std::string_view kind) {
  for (const NameRule& rule : kNameRules) {
    if (rule.kind == kind) return &rule;
  }
  return nullptr;
}

/// True when UDisks may be able to do what the kernel refused to this process, or to any.
bool mayUDisksDoIt(std::int32_t status) {
  return status == dissent::kNotPrivileged || status == dissent::kNotPermitted ||
         status == dissent::kUnsupported;
}

}  // namespace

TargetVolume targetOf(const MountEntry& mount) {
  const bool hasNode = isBlockBacked(mount) && mount.source.starts_with("/dev/");
  return {mount.point, mount.kind, hasNode ? mount.source : std::string(), mount.reusedId, mount.device};
}

Commands::Commands(LinuxOptions options, std::shared_ptr<MountTable> mounts)
    : options_(std::move(options)), mounts_(std::move(mounts)) {}

/// Whether the volume still is what its mount point leads to. Asks the mount table only, by the text of the
/// path: no server is waited for. Ids are reused at once, so what else is known of the volume must fit too.
Commands::Look Commands::lookFor(const TargetVolume& volume) const {
  Look look;
  const bool isKnown = mounts_->readAnew([&](const MountTree& tree) {
    const MountEntry* const entry = tree.mountWithReusedId(volume.mountId);
    if (entry == nullptr || entry->point != volume.mountPoint || entry->device != volume.device ||
        entry->kind != volume.kind)
      return;
    const MountEntry* const reached = tree.mountAbove(volume.mountPoint);
    const bool isReached = reached != nullptr && reached->reusedId == volume.mountId;
    look = {isReached ? Place::mounted : Place::covered, *entry};
  });
  return isKnown ? look : Look{Place::unknown, {}};
}

std::int32_t Commands::unmountDirectly(const TargetVolume& volume) const {
  // The kernel takes this for the root alone as a wish to make the file system read-only.
  if (volume.mountPoint == "/") return dissent::kBusy;
  const std::string path = options_.view() + volume.mountPoint;
  return ::umount2(path.c_str(), UMOUNT_NOFOLLOW) == 0 ? dissent::kDone : dissent::ofError(errno);
}

/// For a process that has not the right itself.
std::int32_t Commands::unmountWithHelp(const TargetVolume& volume, const MountEntry& entry) const {
  if (isOwnFuseMount(entry)) return unmountOwnFuse(options_.view() + volume.mountPoint);
  if (isForUDisks(volume)) return statusOf(unmountWithUDisks(volume.deviceNode, volume.mountPoint));
  return dissent::kNotPrivileged;
}

Dissent Commands::unmount(const TargetVolume& volume) const {
  const Look before = lookFor(volume);
  if (before.place == Place::unknown) return refusal(dissent::kNoResources);
  if (before.place == Place::gone) return refusal(dissent::kNotMounted);
  if (before.place == Place::covered) return refusal(dissent::kBusy);
  std::int32_t status = unmountDirectly(volume);
  if (status == dissent::kDone) return std::nullopt;
  if (status == dissent::kNotPrivileged) status = unmountWithHelp(volume, before.entry);
  // Unmounted by someone else meanwhile (a race): it is gone, as was requested.
  if (lookFor(volume).place == Place::gone) return std::nullopt;
  if (status == dissent::kDone) status = dissent::kError;  // the helper says so, and is wrong
  if (status == dissent::kNotMounted)
    status = dissent::kNotPermitted;  // locked: inherited from another namespace
  if (status != dissent::kBusy) return refusal(status);
  return refusal(status, findHolder(options_, volume));
}

/// REQUIRES: `name` fits the kind, which the kernel itself can name: a local file system, so that opening its
/// root waits for no server.
std::int32_t Commands::renameByKernel(const TargetVolume& volume, const std::string& name) const {
  const std::string path = options_.view() + volume.mountPoint;
  const FileDescriptor root(
      ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC));
  if (!root) return dissent::ofError(errno);
  // While its root is open the kernel does not reuse its id. Where the kernel does not tell it, the table
  // alone decides.
  const MountIdAnswer mount = mountIdOfOpenFile(root.get());
  const bool isElsewhere = mount.error == 0 ? mount.id != volume.mountId : mount.error != ENOSYS;
  if (isElsewhere || lookFor(volume).place != Place::mounted) return dissent::kNotMounted;
  std::array<char, kNameBuffer> label{};
  std::memcpy(label.data(), name.data(), std::min(name.size(), label.size() - 1));
  if (::ioctl(root.get(), FS_IOC_SETFSLABEL, label.data()) == 0) return dissent::kDone;
  return errno == EINVAL ? dissent::kBadArgument : dissent::ofError(errno);
}

Dissent Commands::rename(const TargetVolume& volume, const std::string& newName) const {
  const NameRule* const rule = nameRuleOf(volume.kind);
  const bool tooLong = rule != nullptr && newName.size() > rule->mostBytes;
  if (tooLong || newName.find('\0') != std::string::npos) return refusal(dissent::kBadArgument);
  const Place place = lookFor(volume).place;
  if (place == Place::unknown) return refusal(dissent::kNoResources);
  if (place != Place::mounted) return refusal(dissent::kNotMounted);
  std::int32_t status = dissent::kUnsupported;
  if (rule != nullptr && rule->byKernel) status = renameByKernel(volume, newName);
  if (!mayUDisksDoIt(status) || !isForUDisks(volume)) return refusal(status);
  const UDisksReply reply = setLabelWithUDisks(volume.deviceNode, newName);
  return refusal(reply.kind == UDisksReply::Kind::unreachable ? status : statusOf(reply));
}

}  // namespace kmv
