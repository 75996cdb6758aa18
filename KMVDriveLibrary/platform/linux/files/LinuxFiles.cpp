// SPDX-License-Identifier: MIT
#include "platform/linux/files/LinuxFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <memory>
#include <utility>

#include "platform/linux/queues/WorkerPool.h"
#include "platform/posix/ItemAttributes.h"
#include "platform/posix/RegularFile.h"

namespace kmv {
namespace {

class WaitingFileStream final : public FileStream {
 public:
  explicit WaitingFileStream(std::unique_ptr<FileStream> file) : file_(std::move(file)) {}
  std::optional<std::string> read(std::size_t mostBytes) override {
    const VolumeWait waiting;
    return file_->read(mostBytes);
  }

 private:
  std::unique_ptr<FileStream> file_;
};

timespec timeOf(const statx_timestamp& time) {
  return {static_cast<time_t>(time.tv_sec), static_cast<long>(time.tv_nsec)};
}

}  // namespace

void dropCache(int file) {
  ::posix_fadvise(file, 0, 0, POSIX_FADV_DONTNEED);
}

std::optional<ItemStatus> statusOfItem(const std::string& path) {
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_BASIC_STATS | STATX_BTIME,
              &status) != 0)
    return std::nullopt;
  ItemStatus item{.mode = status.stx_mode,
                  .size = status.stx_size,
                  .links = status.stx_nlink,
                  .device = ::makedev(status.stx_dev_major, status.stx_dev_minor),
                  .inode = status.stx_ino,
                  .owner = status.stx_uid,
                  .group = status.stx_gid,
                  .modified = timeOf(status.stx_mtime),
                  .created = {}};
  if ((status.stx_mask & STATX_BTIME) != 0) item.created = timeOf(status.stx_btime);
  return item;
}

FileBytes LinuxFiles::readRegularFile(const std::string& path, std::size_t mostBytes) {
  const VolumeWait waiting;
  return readRegularFileAt(path, mostBytes);
}

std::unique_ptr<FileStream> LinuxFiles::openForReading(const std::string& path) {
  const VolumeWait waiting;
  auto file = openRegularFile(path);
  return file == nullptr ? nullptr : std::make_unique<WaitingFileStream>(std::move(file));
}

ItemKind LinuxFiles::itemKind(const std::string& path) {
  const VolumeWait waiting;
  return kindOfItem(path);
}

std::optional<Dictionary> LinuxFiles::attributesOfItem(const std::string& path) {
  const VolumeWait waiting;
  return attributesOfItemAt(path);
}

std::optional<std::string> LinuxFiles::realPath(const std::string& path) {
  const VolumeWait waiting;
  return resolvedPath(path);
}

std::optional<std::string> LinuxFiles::currentFolder() {
  const VolumeWait waiting;
  return workingFolder();
}

const std::vector<std::string>& LinuxFiles::pathAliasPrefixes() {
  static const std::vector<std::string> none;
  return none;
}

}  // namespace kmv
