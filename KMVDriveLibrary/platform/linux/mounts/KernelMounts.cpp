// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/KernelMounts.h"

#include <sys/syscall.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <memory>
#include <string>
#include <utility>

namespace kmv {
namespace {

// Newer than many C libraries and kernel headers; these numbers are the same on every processor.
constexpr long kStatmount = 457;
constexpr long kListmount = 458;
constexpr std::uint64_t kWholeNameSpace = ~std::uint64_t{0};

enum Field : std::uint64_t {
  kSuperblock = 0x1,
  kIds = 0x2,
  kRoot = 0x8,
  kPoint = 0x10,
  kType = 0x20,
  kNameSpace = 0x40,
  kOptions = 0x80,
  kSubtype = 0x100,
  kSource = 0x200,
};
constexpr std::uint64_t kEverything =
    kSuperblock | kIds | kRoot | kPoint | kType | kNameSpace | kOptions | kSubtype | kSource;

struct Request {
  std::uint32_t size = sizeof(Request);
  std::uint32_t spare = 0;
  std::uint64_t id = 0;
  std::uint64_t parameter = 0;  // the fields wanted; of listmount the last id known
  std::uint64_t nameSpace = 0;
};

/// The kernel's record. Texts are offsets into what follows it.
struct Record {
  std::uint32_t size, options;
  std::uint64_t mask;
  std::uint32_t major, minor;
  std::uint64_t magic;
  std::uint32_t superblockFlags, type;
  std::uint64_t id, parent;
  std::uint32_t reusedId, reusedParent;
  std::uint64_t attributes, propagation, peerGroup, master, propagatesFrom;
  std::uint32_t root, point;
  std::uint64_t nameSpace;
  std::uint32_t subtype, source;
  std::uint64_t newer[48];
};
static_assert(offsetof(Record, source) == 124 && sizeof(Record) == 512);

/// What most records fit into; paths may be longer than any constant, so larger ones are asked for again.
constexpr std::size_t kUsualBytes = 4096;
constexpr std::size_t kMostBytes = std::size_t{4} << 20;

long callListmount(std::uint64_t nameSpace, std::uint64_t after, std::uint64_t* ids, std::size_t size) {
  const Request request{.id = kWholeNameSpace, .parameter = after, .nameSpace = nameSpace};
  return ::syscall(kListmount, &request, ids, size, 0U);
}

int callStatmount(std::uint64_t nameSpace, std::uint64_t id, void* buffer, std::size_t size) {
  const Request request{.id = id, .parameter = kEverything, .nameSpace = nameSpace};
  return ::syscall(kStatmount, &request, buffer, size, 0U) == 0 ? 0 : errno;
}

std::string text(const char* buffer, const Record& record, Field field, std::uint32_t offset) {
  return (record.mask & field) != 0 ? std::string(buffer + sizeof(Record) + offset) : std::string();
}

KernelMounts::Answer answerIn(const char* buffer) {
  const auto& record = *reinterpret_cast<const Record*>(buffer);
  MountEntry entry;
  entry.id = entry.order = record.id;
  entry.parent = record.parent;
  entry.reusedId = record.reusedId;
  entry.device = {record.major, record.minor};
  entry.root = text(buffer, record, kRoot, record.root);
  entry.point = text(buffer, record, kPoint, record.point);
  entry.kind = text(buffer, record, kType, record.type);
  if ((record.mask & kSubtype) != 0) entry.kind.append(".").append(buffer + sizeof(Record) + record.subtype);
  entry.source = text(buffer, record, kSource, record.source);
  entry.superOptions = text(buffer, record, kOptions, record.options);
  const int error = entry.point.empty() ? ENOENT : 0;  // beyond our root
  return {error, std::move(entry)};
}

}  // namespace

std::optional<KernelMounts> KernelMounts::open(int* error) {
  KernelMounts mounts;
  const Ids ids = mounts.idsAbove(0);
  const auto failed = [error](int why) {
    if (error != nullptr) *error = why;
    return std::nullopt;
  };
  if (ids.ids.empty()) return failed(ids.error);
  alignas(Record) std::array<char, kUsualBytes> buffer;
  if (const int why = callStatmount(0, ids.ids.front(), buffer.data(), buffer.size()); why != 0)
    return failed(why);
  const auto& record = *reinterpret_cast<const Record*>(buffer.data());
  // The source came with the same kernel as the subtype, which not every mount has.
  constexpr std::uint64_t kNeeded = kSuperblock | kIds | kPoint | kType | kNameSpace | kSource;
  if ((record.mask & kNeeded) != kNeeded) return failed(ENOSYS);
  mounts.nameSpace_ = record.nameSpace;
  return mounts;
}

KernelMounts::Answer KernelMounts::mount(std::uint64_t id) const {
  alignas(Record) std::array<char, kUsualBytes> usual;
  int error = callStatmount(nameSpace_, id, usual.data(), usual.size());
  if (error == 0) return answerIn(usual.data());
  for (std::size_t size = 4 * kUsualBytes; error == EOVERFLOW && size <= kMostBytes; size *= 4) {
    const auto large = std::make_unique<Record[]>(size / sizeof(Record));
    error = callStatmount(nameSpace_, id, large.get(), size);
    if (error == 0) return answerIn(reinterpret_cast<const char*>(large.get()));
  }
  // Without the right to know, what cannot be reached from our root is refused like everything else.
  return {error == EPERM && isUnlisted(id) ? ENOENT : error, {}};
}

bool KernelMounts::isUnlisted(std::uint64_t id) const {
  std::uint64_t next = 0;
  const long count = callListmount(nameSpace_, id - 1, &next, 1);
  return count == 0 || (count == 1 && next != id);
}

KernelMounts::Ids KernelMounts::idsAbove(std::uint64_t after) const {
  std::array<std::uint64_t, 512> some;
  Ids all;
  for (;;) {
    const long count = callListmount(nameSpace_, after, some.data(), some.size());
    if (count < 0) return {errno, {}};
    all.ids.insert(all.ids.end(), some.begin(), some.begin() + count);
    if (count < static_cast<long>(some.size())) return all;
    after = some.back();
  }
}

bool KernelMounts::canBeAsked() const {
  std::uint64_t any = 0;
  return callListmount(nameSpace_, 0, &any, 1) >= 0;
}

}  // namespace kmv
