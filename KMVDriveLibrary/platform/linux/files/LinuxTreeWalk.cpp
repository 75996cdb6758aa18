// SPDX-License-Identifier: MIT
#include "platform/linux/files/LinuxTreeWalk.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <memory>
#include <thread>
#include <utility>

#include "platform/linux/queues/WorkerPool.h"
#include "platform/posix/FileWalk.h"
#include "platform/posix/FolderReader.h"
#include "platform/posix/Retry.h"

namespace kmv {
namespace {

constexpr std::size_t kListBuffer = 32 * 1024;  // bytes

class Helper : public Work {
 public:
  explicit Helper(std::function<void()> help) : help_(std::move(help)) {}
  void runOnWorker() override {
    const VolumeWait waiting;  // it takes nobody's turn
    help_();
  }

 private:
  std::function<void()> help_;
};

}  // namespace

bool readEntries(int folder, const VisitEntry& visit) {
  alignas(dirent64) std::array<char, kListBuffer> buffer;
  for (;;) {
    const long got =
        retryOnEINTR([&] { return ::syscall(SYS_getdents64, folder, buffer.data(), buffer.size()); });
    if (got <= 0) return got == 0;
    for (long at = 0; at < got;) {
      const auto* entry = reinterpret_cast<const dirent64*>(buffer.data() + at);
      at += entry->d_reclen;
      if (!visit(entry->d_name, entry->d_type == DT_DIR)) return false;
    }
  }
}

std::optional<FolderIdentity> identityOf(int folder) {
  struct statx status {};
  if (::statx(folder, "", AT_EMPTY_PATH | AT_STATX_DONT_SYNC, STATX_INO, &status) != 0) return std::nullopt;
  return FolderIdentity{::makedev(status.stx_dev_major, status.stx_dev_minor), status.stx_ino};
}

/// As many threads as there are processors keep a disk of this machine busy; a volume behind a server is
/// bound by latency and answers several requests at a time, however far away it is.
std::size_t usefulHelpers(const std::string& folder, std::size_t most) {
  struct statx status {};
  if (::statx(AT_FDCWD, folder.c_str(), AT_NO_AUTOMOUNT, STATX_TYPE, &status) != 0) return 0;
  if (status.stx_dev_major == 0) return most;
  return std::clamp<std::size_t>(std::thread::hardware_concurrency(), 2, most + 1) - 1;
}

bool offerHelper(std::function<void()> help) {
  return WorkerPool::shared().offer(std::make_shared<Helper>(std::move(help)));
}

void LinuxTreeWalk::visitEachFile(const std::string& folder, const std::string& attribute,
                                  const VisitFile& visit) {
  const VolumeWait waiting;
  walkFiles(folder, attribute, visit);
}

}  // namespace kmv
