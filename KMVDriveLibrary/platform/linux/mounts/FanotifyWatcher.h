// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "platform/linux/mounts/StatmountWatcher.h"
#include "platform/posix/FileDescriptor.h"

namespace kmv {

/// The watcher that is told of each mount and unmount by itself, in the order in which they happened (Linux 6.14,
/// for whoever administers the mount name space): an event costs what it is about, however many mounts there are.
/// Remounts are not told, and change nothing that the table has.
class FanotifyWatcher final : public StatmountWatcher {
 public:
  /// Null where the kernel does not know such reports, or refuses them; `error` is the `errno` then.
  static std::unique_ptr<FanotifyWatcher> make(const LinuxOptions& options, KernelMounts kernel,
                                               int* error = nullptr);

  int descriptor() const override { return reports_.get(); }
  std::unique_ptr<MountChangeProbe> makeProbe() const override;

 private:
  FanotifyWatcher(const LinuxOptions& options, KernelMounts kernel, FileDescriptor reports);

  bool takeReports() override;
  std::string ownName() const override { return "fanotify"; }
  bool takeRecords(const char* records, std::size_t size);
  void take(std::uint64_t what, std::uint64_t id);

  const FileDescriptor reports_;
  std::atomic<std::uint64_t> turn_{0};  // odd while reports are taken; ascends when there were some
};

}  // namespace kmv
