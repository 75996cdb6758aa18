// SPDX-License-Identifier: MIT
#include "platform/linux/files/LinuxItemLook.h"

#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/syscall.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <utility>

#include "platform/linux/files/LinuxAttributes.h"
#include "platform/posix/FileDescriptor.h"
#include "platform/posix/GrowingValue.h"
#include "platform/posix/Retry.h"

namespace kmv {
namespace {

constexpr unsigned kTypeAndSize = STATX_TYPE | STATX_SIZE;
constexpr int kLook = AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT;

#ifndef SYS_getxattrat
constexpr long SYS_getxattrat = 464;
#endif
struct GetxattratArguments {
  alignas(8) std::uint64_t value;
  std::uint32_t size;
  std::uint32_t flags;
};

What whatOf(std::uint16_t mode) {
  if (S_ISDIR(mode)) return What::folder;
  return S_ISLNK(mode) ? What::link : What::file;
}

bool isFuse(const std::string& volume) {
  struct statfs system {};
  return ::statfs(volume.c_str(), &system) == 0 && system.f_type == FUSE_SUPER_MAGIC;
}

/// Not on the stack: a recursive walk has one frame on it for every level.
struct statx& scratch() {
  thread_local struct statx status;
  return status;
}

int looked(int from, const char* name, int flags) {
  return retryOnEINTR([&] { return ::statx(from, name, flags, kTypeAndSize, &scratch()); });
}

bool fill(SeenItem& item, int result) {
  item.what = result == 0 ? whatOf(scratch().stx_mode) : What::nothing;
  item.size = result == 0 ? scratch().stx_size : 0;
  return result == 0;
}

/// Whether a name that was just looked up on a FUSE volume is still in the kernel's cache of names
/// (RESOLVE_CACHED), so that the next look costs no request.
bool isInCache(int descriptor, const char* name) {
  open_how how{};
  how.flags = O_PATH | O_NOFOLLOW | O_CLOEXEC;
  how.resolve = RESOLVE_CACHED;
  const FileDescriptor handle(static_cast<int>(::syscall(SYS_openat2, descriptor, name, &how, sizeof how)));
  return handle || errno != EAGAIN;
}

template <typename Get>
std::optional<std::string> valueUnder(const std::string& name, const Get& get) {
  return growingValue([&](char* value, std::size_t size) { return get(name.c_str(), value, size); });
}

}  // namespace

std::unique_ptr<ItemLook> makeItemLook(const std::string& attribute, const std::string& volume) {
  return std::make_unique<LinuxItemLook>(attribute, volume);
}

LinuxItemLook::LinuxItemLook(std::string attribute, const std::string& volume)
    : plainName_(std::move(attribute)), name_(attributeNameInSpace(plainName_)), isFuse_(isFuse(volume)) {}

void LinuxItemLook::lookAt(int descriptor, const char* name, SeenItem& item) {
  if (cachesNothing_.load(std::memory_order_relaxed) && lookThroughItem(descriptor, name, item)) return;
  if (!fill(item, looked(descriptor, name, kLook))) return;
  if (isFuse_ && !cacheIsKnown_.exchange(true)) cachesNothing_ = !isInCache(descriptor, name);
  if (item.what == What::file && item.size == 0) item.attribute = valueByName(descriptor, name);
}

std::optional<std::string> LinuxItemLook::valueByPath(const std::string& path) const {
  return plainName_.empty() ? std::nullopt : attributeOf(path, plainName_);
}

/// Where the kernel caches nothing, each look by name is a request of its own: one for all questions. What it
/// brought needs no second one. False when there is no descriptor left.
bool LinuxItemLook::lookThroughItem(int descriptor, const char* name, SeenItem& item) {
  const FileDescriptor handle(
      retryOnEINTR([&] { return ::openat(descriptor, name, O_PATH | O_NOFOLLOW | O_CLOEXEC); }));
  if (!handle && (errno == EMFILE || errno == ENFILE)) return false;
  item.what = What::nothing;
  if (!handle || !fill(item, looked(handle.get(), "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC | kLook)))
    return true;
  if (item.what != What::file || item.size != 0) return true;
  const std::string path = "/proc/self/fd/" + std::to_string(handle.get());
  item.attribute = firstValue([&](const char* attribute, char* value, std::size_t size) {
    return ::getxattr(path.c_str(), attribute, value, size);
  });
  return true;
}

std::optional<std::string> LinuxItemLook::valueByName(int descriptor, const char* name) {
  return firstValue([&](const char* attribute, char* value, std::size_t size) -> ssize_t {
    if (hasGetxattrat_.load(std::memory_order_relaxed)) {
      GetxattratArguments arguments{reinterpret_cast<std::uintptr_t>(value), static_cast<std::uint32_t>(size),
                                    0};
      const long got = ::syscall(SYS_getxattrat, descriptor, name, AT_SYMLINK_NOFOLLOW, attribute, &arguments,
                                 sizeof arguments);
      if (got >= 0 || (errno != ENOSYS && errno != EPERM)) return got;
      if (errno == ENOSYS) hasGetxattrat_ = false;
    }
    // Before kernel 6.13, and where a container's system-call filter rejects what it does not know.
    const std::string path = descriptor == AT_FDCWD
                                 ? std::string(name)
                                 : "/proc/self/fd/" + std::to_string(descriptor) + "/" + name;
    return ::lgetxattr(path.c_str(), attribute, value, size);
  });
}

/// The value under the name in the name space, or under the plain one where the file system may serve that.
template <typename Get>
std::optional<std::string> LinuxItemLook::firstValue(const Get& get) const {
  if (plainName_.empty()) return std::nullopt;
  auto value = valueUnder(name_, get);
  if (!value && name_ != plainName_ && mayBePlainAttribute(errno)) value = valueUnder(plainName_, get);
  return value;
}

}  // namespace kmv
