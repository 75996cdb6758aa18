// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/FanotifyWatcher.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/fanotify.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <utility>

#include "platform/posix/Retry.h"

namespace kmv {
namespace {

// Newer than many kernel headers.
constexpr unsigned kReportMounts = 0x4000;
constexpr unsigned kMarkNameSpace = 0x110;
constexpr std::uint64_t kAttached = 0x01000000;
constexpr std::uint64_t kDetached = 0x02000000;
constexpr unsigned char kMountRecord = 7;

/// What follows a report's head when it is about a mount.
struct MountRecord {
  unsigned char type, padding;
  std::uint16_t size;
  std::uint32_t spare;
  std::uint64_t id;
};
static_assert(sizeof(MountRecord) == 16);
using Head = fanotify_event_metadata;

class FanotifyProbe final : public MountChangeProbe {
 public:
  FanotifyProbe(int reports, const std::atomic<std::uint64_t>& turn) : reports_(reports), turn_(turn) {}

  // A report is either still there, or was taken: then `turn_` is odd, or another one.
  bool hasChanged() override {
    pollfd request{reports_, POLLIN, 0};
    if (::poll(&request, 1, 0) != 0) return true;
    const std::uint64_t turn = turn_;
    if (turn % 2 != 0) return true;
    return std::exchange(seen_, turn) != turn;
  }

 private:
  const int reports_;
  const std::atomic<std::uint64_t>& turn_;  // the watcher's
  std::uint64_t seen_ = ~std::uint64_t{0};
};

std::nullptr_t failed(int* error) {
  if (error != nullptr) *error = errno;
  return nullptr;
}

}  // namespace

std::unique_ptr<FanotifyWatcher> FanotifyWatcher::make(const LinuxOptions& options, KernelMounts kernel,
                                                       int* error) {
  FileDescriptor reports(::fanotify_init(kReportMounts | FAN_CLASS_NOTIF | FAN_CLOEXEC | FAN_NONBLOCK, 0));
  if (!reports) return failed(error);
  const FileDescriptor nameSpace(::open((options.procRoot + "/self/ns/mnt").c_str(), O_RDONLY | O_CLOEXEC));
  if (!nameSpace || ::fanotify_mark(reports.get(), FAN_MARK_ADD | kMarkNameSpace, kAttached | kDetached,
                                    nameSpace.get(), nullptr) != 0)
    return failed(error);
  return std::unique_ptr<FanotifyWatcher>(new FanotifyWatcher(options, kernel, std::move(reports)));
}

FanotifyWatcher::FanotifyWatcher(const LinuxOptions& options, KernelMounts kernel, FileDescriptor reports)
    : StatmountWatcher(options, kernel), reports_(std::move(reports)) {}

std::unique_ptr<MountChangeProbe> FanotifyWatcher::makeProbe() const {
  return std::make_unique<FanotifyProbe>(reports_.get(), turn_);
}

bool FanotifyWatcher::takeReports() {
  alignas(Head) std::array<char, 4096> records;
  bool lost = false;
  ssize_t got = 0;
  do {
    ++turn_;
    got = retryOnEINTR([&] { return ::read(reports_.get(), records.data(), records.size()); });
    got > 0 ? ++turn_ : --turn_;
    if (got > 0 && takeRecords(records.data(), static_cast<std::size_t>(got))) lost = true;
    // A read that leaves room for another record has taken them all.
  } while (got + static_cast<ssize_t>(sizeof(Head) + sizeof(MountRecord)) >
           static_cast<ssize_t>(records.size()));
  return lost;
}

/// True when the kernel's queue was full and reports are missing.
bool FanotifyWatcher::takeRecords(const char* records, std::size_t size) {
  bool lost = false;
  while (size >= sizeof(Head)) {
    Head head;
    std::memcpy(&head, records, sizeof head);
    if (head.event_len < sizeof head || head.event_len > size) return true;
    if ((head.mask & FAN_Q_OVERFLOW) != 0) lost = true;
    if (head.event_len >= head.metadata_len + sizeof(MountRecord)) {
      MountRecord record;
      std::memcpy(&record, records + head.metadata_len, sizeof record);
      if (record.type == kMountRecord) take(head.mask, record.id);
    }
    records += head.event_len;
    size -= head.event_len;
  }
  return lost;
}

/// Each report is a difference of its own, so that what comes and goes is told.
void FanotifyWatcher::take(std::uint64_t what, std::uint64_t id) {
  if ((what & kAttached) != 0) {
    known().compare(id);  // with both it moved
  } else {
    known().forget(id);
  }
  endDifference();
}

}  // namespace kmv
