// SPDX-License-Identifier: MIT
#include "platform/macos/MacTreeWalk.h"

#include <dirent.h>
#include <dispatch/dispatch.h>
#include <fcntl.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <thread>
#include <utility>

#include "base/RunOrStop.h"
#include "platform/posix/FileDescriptor.h"
#include "platform/posix/FileWalk.h"
#include "platform/posix/FolderReader.h"

namespace kmv {

/// The listing needs a descriptor of its own, since it takes that over.
bool readEntries(int folder, const VisitEntry& visit) {
  const int again = ::openat(folder, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (again < 0) return false;
  const std::unique_ptr<DIR, int (*)(DIR*)> listing(::fdopendir(again), &::closedir);
  if (listing == nullptr) {
    const FileDescriptor closed(again);
    return false;
  }
  for (;;) {
    errno = 0;
    const dirent* const entry = ::readdir(listing.get());
    if (entry == nullptr) return errno == 0;
    if (!visit(entry->d_name, entry->d_type == DT_DIR)) return false;
  }
}

std::optional<FolderIdentity> identityOf(int folder) {
  struct stat status {};
  if (::fstat(folder, &status) != 0) return std::nullopt;
  return FolderIdentity{status.st_dev, status.st_ino};
}

/// As many threads as there are processors keep a disk of this machine busy; a volume behind a server is
/// bound by latency and answers several requests at a time, however far away it is.
std::size_t usefulHelpers(const std::string& folder, std::size_t most) {
  struct statfs volume {};
  if (::statfs(folder.c_str(), &volume) != 0) return 0;
  if ((volume.f_flags & MNT_LOCAL) == 0) return most;
  return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 2, most + 1) - 1;
}

bool offerHelper(std::function<void()> help) {
  using Help = std::function<void()>;
  dispatch_async_f(dispatch_get_global_queue(QOS_CLASS_UTILITY, 0), new Help(std::move(help)),
                   [](void* p) noexcept {
                     const std::unique_ptr<Help> given(static_cast<Help*>(p));
                     runOrStop(*given, "walk of files");
                   });
  return true;
}

namespace macos {

void MacTreeWalk::visitEachFile(const std::string& folder, const std::string& attribute,
                                const VisitFile& visit) {
  walkFiles(folder, attribute, visit);
}

}  // namespace macos
}  // namespace kmv
