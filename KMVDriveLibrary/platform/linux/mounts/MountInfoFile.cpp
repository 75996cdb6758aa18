// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountInfoFile.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>

#include "platform/posix/SystemFiles.h"

namespace kmv {

MountInfoFile::MountInfoFile(const LinuxOptions& options)
    : path_(options.procRoot + "/" + options.mountTableOf + "/mountinfo") {}

bool MountInfoFile::open() {
  if (!file_) file_ = FileDescriptor(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
  return static_cast<bool>(file_);
}

bool MountInfoFile::hasChanged() {
  if (!file_) {
    open();
    return true;
  }
  // The kernel's file is never writable. One that is has no poll of its own, and would never report anything.
  pollfd request{file_.get(), POLLPRI | POLLOUT, 0};
  return ::poll(&request, 1, 0) != 0;
}

std::optional<std::string> MountInfoFile::read() {
  return open() ? readWhole(file_.get()) : std::nullopt;
}

int MountInfoFile::descriptor() {
  return open() ? file_.get() : -1;
}

std::uint32_t MountInfoFile::epollEvents() const {
  return EPOLLPRI;  // never EPOLLIN: the file is always readable
}

}  // namespace kmv
