// SPDX-License-Identifier: MIT
#include "platform/posix/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <utility>

#include "platform/posix/FileDescriptor.h"
#include "platform/posix/Retry.h"

namespace kmv {
namespace {

constexpr std::size_t kFirstRead = 4096;
constexpr int kOpenFile = O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC;

FileBytes failureOf(int error) {
  using Failure = FileBytes::Failure;
  if (error == ENOENT) return {{}, Failure::missing};
  return {{}, error == EACCES || error == EPERM ? Failure::notPermitted : Failure::unreadable};
}

/// Drops the kernel's cache of the file at the beginning and at the end of this object's lifetime (RAII).
class DroppedCache {
 public:
  explicit DroppedCache(int file) : file_(file) { dropCache(file_); }
  ~DroppedCache() { dropCache(file_); }
  DroppedCache(const DroppedCache&) = delete;
  DroppedCache& operator=(const DroppedCache&) = delete;

 private:
  int file_;
};

class RegularFileStream final : public FileStream {
 public:
  explicit RegularFileStream(FileDescriptor file) : file_(std::move(file)) {}
  std::optional<std::string> read(std::size_t mostBytes) override {
    std::string bytes(mostBytes, '\0');
    const ssize_t got = retryOnEINTR([&] { return ::read(file_.get(), bytes.data(), bytes.size()); });
    if (got < 0) return std::nullopt;
    bytes.resize(static_cast<std::size_t>(got));
    return bytes;
  }

 private:
  FileDescriptor file_;
};

/// The file to its end; none on a read error and beyond `mostBytes`.
std::optional<std::string> readToEnd(int file, std::size_t mostBytes) {
  std::string bytes;
  std::size_t filled = 0;
  for (;;) {
    if (filled == bytes.size()) {
      if (filled > mostBytes) return std::nullopt;
      // One byte more than allowed, to see a file that grew meanwhile.
      bytes.resize(std::min(mostBytes + 1, std::max(kFirstRead, filled * 2)));
    }
    const ssize_t got =
        retryOnEINTR([&] { return ::read(file, bytes.data() + filled, bytes.size() - filled); });
    if (got < 0) return std::nullopt;
    if (got == 0) break;
    filled += static_cast<std::size_t>(got);
  }
  bytes.resize(filled);
  return filled > mostBytes ? std::nullopt : std::optional(std::move(bytes));
}

}  // namespace

FileBytes readRegularFileAt(const std::string& path, std::size_t mostBytes) {
  // Whatever is there may be hostile: a device must not be opened, a link not followed, a pipe not waited
  // for. Between look and open the item can be replaced (a race between check and use), so it is looked at
  // twice.
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return failureOf(errno);
  if (!S_ISREG(status.st_mode)) return {};
  const FileDescriptor file(::open(path.c_str(), kOpenFile | O_NOFOLLOW));
  if (!file) return failureOf(errno);
  if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return {};
  if (static_cast<std::uintmax_t>(status.st_size) > mostBytes) return {};
  // The kernel's cache is stale when a server changed the file; and nobody needs it there afterwards.
  const DroppedCache uncached(file.get());
  return {readToEnd(file.get(), mostBytes), FileBytes::Failure::unreadable};
}

std::unique_ptr<FileStream> openRegularFile(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  FileDescriptor file(::open(path.c_str(), kOpenFile));
  if (!file || ::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
  return std::make_unique<RegularFileStream>(std::move(file));
}

ItemKind kindOfItem(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) return ItemKind::none;
  return S_ISDIR(status.st_mode) ? ItemKind::folder : ItemKind::file;
}

std::optional<std::string> resolvedPath(const std::string& path) {
  const std::unique_ptr<char, void (*)(void*)> resolved(::realpath(path.c_str(), nullptr), std::free);
  return resolved ? std::optional<std::string>(resolved.get()) : std::nullopt;
}

std::optional<std::string> workingFolder() {
  const std::unique_ptr<char, void (*)(void*)> folder(::getcwd(nullptr, 0), std::free);
  // A folder outside of this process's root has no path: the C library fails where Linux says "(unreachable)".
  return folder ? std::optional<std::string>(folder.get()) : std::nullopt;
}

}  // namespace kmv
