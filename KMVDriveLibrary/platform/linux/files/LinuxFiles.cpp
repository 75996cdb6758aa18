// SPDX-License-Identifier: MIT
#include "platform/linux/files/LinuxFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <utility>

#include "platform/linux/queues/WorkerPool.h"
#include "platform/posix/FileDescriptor.h"

namespace kmv {
namespace {

constexpr std::size_t kFirstRead = 4096;

FileBytes failureOf(int error) {
  using Failure = FileBytes::Failure;
  if (error == ENOENT) return {{}, Failure::missing};
  return {{}, error == EACCES || error == EPERM ? Failure::notPermitted : Failure::unreadable};
}

/// Drops what the kernel has cached of a file, at the beginning and at the end of its life.
class DroppedCache {
 public:
  explicit DroppedCache(int file) : file_(file) { drop(); }
  ~DroppedCache() { drop(); }
  DroppedCache(const DroppedCache&) = delete;
  DroppedCache& operator=(const DroppedCache&) = delete;

 private:
  void drop() const { ::posix_fadvise(file_, 0, 0, POSIX_FADV_DONTNEED); }
  int file_;
};

class LinuxFileStream final : public FileStream {
 public:
  explicit LinuxFileStream(FileDescriptor file) : file_(std::move(file)) {}
  std::optional<std::string> read(std::size_t mostBytes) override {
    const WorkerPool::WaitingScope waiting(WorkerPool::WaitsFor::volume);
    std::string bytes(mostBytes, '\0');
    ssize_t got = 0;
    do {
      got = ::read(file_.get(), bytes.data(), bytes.size());
    } while (got < 0 && errno == EINTR);
    if (got < 0) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(got));
    return bytes;
  }

 private:
  FileDescriptor file_;
};

Date dateOf(const statx_timestamp& time) {
  return {static_cast<double>(time.tv_sec) - Date::kReferenceDate + static_cast<double>(time.tv_nsec) * 1e-9};
}

const char* typeOf(unsigned mode) {
  switch (mode & S_IFMT) {
    case S_IFREG:
      return "NSFileTypeRegular";
    case S_IFDIR:
      return "NSFileTypeDirectory";
    case S_IFLNK:
      return "NSFileTypeSymbolicLink";
    case S_IFSOCK:
      return "NSFileTypeSocket";
    case S_IFCHR:
      return "NSFileTypeCharacterSpecial";
    case S_IFBLK:
      return "NSFileTypeBlockSpecial";
    default:
      return "NSFileTypeUnknown";
  }
}

}  // namespace

FileBytes LinuxFiles::readRegularFile(const std::string& path, std::size_t mostBytes) {
  const WorkerPool::WaitingScope waiting(
      WorkerPool::WaitsFor::volume);  // for a volume: a task that does takes nobody's turn
  // Whatever is there may be hostile: a device must not be opened, a link not followed, a pipe not waited
  // for. What is looked at first may be another thing by the time it is opened, so it is looked at twice.
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return failureOf(errno);
  if (!S_ISREG(status.st_mode)) return {};
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_NOCTTY | O_CLOEXEC));
  if (!file) return failureOf(errno);
  if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  if (static_cast<std::uintmax_t>(status.st_size) > mostBytes) return {};
  // A server may change what the kernel has in its cache; and nobody needs it there afterwards.
  const DroppedCache uncached(file.get());
  std::string bytes;
  std::size_t filled = 0;
  for (;;) {
    if (filled == bytes.size()) {
      if (filled > mostBytes) return {};
      // One byte more than allowed, to see a file that grew meanwhile.
      bytes.resize(std::min(mostBytes + 1, std::max(kFirstRead, filled * 2)));
    }
    const ssize_t got = ::read(file.get(), bytes.data() + filled, bytes.size() - filled);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return {};
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
  }
  bytes.resize(filled);
  if (filled > mostBytes) return {};
  return {std::move(bytes), {}};
}

std::unique_ptr<FileStream> LinuxFiles::openForReading(const std::string& path) {
  const WorkerPool::WaitingScope waiting(WorkerPool::WaitsFor::volume);
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  FileDescriptor file(::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  return std::make_unique<LinuxFileStream>(std::move(file));
}

ItemKind LinuxFiles::itemKind(const std::string& path) {
  const WorkerPool::WaitingScope waiting(WorkerPool::WaitsFor::volume);
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return ItemKind::none;
  return S_ISDIR(status.st_mode) ? ItemKind::folder : ItemKind::file;
}

std::optional<Dictionary> LinuxFiles::attributesOfItem(const std::string& path) {
  const WorkerPool::WaitingScope waiting(WorkerPool::WaitsFor::volume);
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_BASIC_STATS | STATX_BTIME,
              &status) != 0)
    return std::nullopt;
  Dictionary attributes{{"NSFileSize", status.stx_size},
                        {"NSFileModificationDate", dateOf(status.stx_mtime)},
                        {"NSFileType", typeOf(status.stx_mode)},
                        {"NSFilePosixPermissions", status.stx_mode & 07777},
                        {"NSFileReferenceCount", status.stx_nlink},
                        {"NSFileSystemNumber", ::makedev(status.stx_dev_major, status.stx_dev_minor)},
                        {"NSFileSystemFileNumber", status.stx_ino},
                        {"NSFileOwnerAccountID", status.stx_uid},
                        {"NSFileGroupOwnerAccountID", status.stx_gid}};
  if ((status.stx_mask & STATX_BTIME) != 0) attributes.set("NSFileCreationDate", dateOf(status.stx_btime));
  return attributes;
}

std::optional<std::string> LinuxFiles::realPath(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> resolved(::realpath(path.c_str(), nullptr), std::free);
  return resolved ? std::optional<std::string>(resolved.get()) : std::nullopt;
}

std::optional<std::string> LinuxFiles::currentFolder() {
  const std::unique_ptr<char, void (*)(void*)> folder(::getcwd(nullptr, 0), std::free);
  // The kernel writes "(unreachable)" in front of a folder that lies outside this process's root.
  if (!folder || folder.get()[0] != '/') return std::nullopt;
  return folder.get();
}

const std::vector<std::string>& LinuxFiles::pathAliasPrefixes() {
  static const std::vector<std::string> none;
  return none;
}

}  // namespace kmv
