// SPDX-License-Identifier: MIT
#pragma once

#include <DiskArbitration/DiskArbitration.h>
#include <KMVDriveLibrary/Mutex.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <set>
#include <string>

#include "platform/DiskArbitrationSession.h"
#include "platform/macos/CF.h"

namespace kmv::macos {

/// The part of a session that the platform calls: on the heap, so that its address is the context of every
/// registration, and alive until nothing calls it any more.
class SessionState : public std::enable_shared_from_this<SessionState> {
 public:
  /// Asks the platform for something of `disk`, with the context of the answer.
  using Ask = std::function<void(DADiskRef disk, void* context)>;

  SessionState() : session_(CF<DASessionRef>::adopt(DASessionCreate(kCFAllocatorDefault))) {}

  DASessionRef session() const { return session_.get(); }
  void setQueue(std::shared_ptr<SerialQueue> queue);
  void registerCallbacks(const DiskCallbacks& callbacks, void* context);
  /// Carries out a command on a thread of its own, since it may wait for the user's password. The answer must
  /// be `answered` with the context that `ask` gets.
  void carryOut(CF<DADiskRef> disk, Ask ask, CommandCompletion completion, void* context);
  static void answered(DADiskRef disk, DADissenterRef dissenter, void* command) noexcept;
  /// Nothing is called any more.
  void close();

 private:
  struct Command;

  static void appeared(DADiskRef disk, void* state) noexcept;
  static void disappeared(DADiskRef disk, void* state) noexcept;
  static void changed(DADiskRef disk, CFArrayRef keys, void* state) noexcept;
  void tellWhenQuiet();
  void runOnQueue(const std::function<void()>& task) const;
  void closeOnQueue();
  void deliver(const std::shared_ptr<Command>& command, DADiskRef disk, const Dictionary* dissenter);

  const CF<DASessionRef> session_;  // null where the platform gives none: its calls take that and do nothing
  std::shared_ptr<SerialQueue> queue_;
  DiskCallbacks callbacks_;
  void* context_ = nullptr;
  bool isRegistered_ = false;
  std::atomic<std::uint64_t> appearances_ = 0;
  Mutex mutex_;
  std::set<std::shared_ptr<Command>> open_ KMV_GUARDED_BY(mutex_);  // without an answer
};

}  // namespace kmv::macos
