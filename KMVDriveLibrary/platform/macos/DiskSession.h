// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <string>

#include "platform/DiskArbitrationSession.h"

namespace kmv::macos {

class SessionState;

/// A session with the platform's daemon. It hands events on as they come: nothing is merged, nothing
/// remembered.
///
/// When the daemon exits, a session hears nothing any more, and there is no public way to mend it. Where no
/// session can be had (a sandbox), this one is deaf and look-ups find nothing.
class DiskSession final : public DiskArbitrationSession {
 public:
  DiskSession();
  /// Returns after the last callback; commands without an answer get none. Waits for the session's queue
  /// unless it is called on it.
  ~DiskSession() override;

  /// REQUIRES: `queue` is one of this platform.
  void setQueue(std::shared_ptr<SerialQueue> queue) override;
  void registerCallbacks(const DiskCallbacks& callbacks, void* context) override;
  /// Asks the daemon whether it knows the disk. The disk's description is asked anew each time.
  std::unique_ptr<Disk> diskFromVolumePath(const URL& volume) override;
  void unmount(const Disk& disk, CommandCompletion completion, void* context) override;
  void rename(const Disk& disk, const std::string& newName, CommandCompletion completion,
              void* context) override;

 private:
  const std::shared_ptr<SessionState> state_;
};

}  // namespace kmv::macos
