// SPDX-License-Identifier: MIT
#pragma once

#include "contract/Harness.h"
#include "support/SessionRecorder.h"
#include "support/Testing.h"

namespace kmv::test {

/// A session and its recorder on a machine where other disks than the test's own may come and go.
class SessionContract : public MachineContract {
 protected:
  void SetUp() override {
    MachineContract::SetUp();
    if (IsSkipped()) return;
    recorder_ = std::make_unique<SessionRecorder>(platform(),
                                                  [this](const Dictionary& disk) { return nameOf(disk); });
  }

  SessionRecorder& recorder() { return *recorder_; }
  DiskArbitrationSession& session() { return recorder_->session(); }

  /// Under the lock all the while: the session may hear of the disk before this thread knows its name.
  std::string plugIn(const std::string& name) {
    const MutexLock lock(mutex_);
    return *devices_.insert(harness().plugIn(name)).first;
  }
  /// Lets `count` events come, and whatever else has happened by then.
  SessionRecorder::Lines heard(std::size_t count) {
    harness().runUntil([&] { return recorder().lines().size() >= count; });
    settle();
    return recorder().take();
  }
  /// The session has looked at the machine, and its queue has run.
  void settle() {
    diskAt("no such point");
    recorder().queue().sync([] {});
  }

  URL pointURL(const std::string& point) { return URL::fileURLWithPath(path(point), /*isDirectory=*/true); }
  std::unique_ptr<Disk> diskAt(const std::string& point) {
    return session().diskFromVolumePath(pointURL(point));
  }
  double appearanceTime() { return recorder().last().doubleValue(key::kAppearanceTime); }

 private:
  /// "CARD at card" for the test's own disks.
  std::optional<std::string> nameOf(const Dictionary& disk) {
    const std::string* device = disk.text(key::kMediaBSDName);
    const URL* url = disk.url(key::kVolumePath);
    const bool isBelow = url != nullptr && url->path().starts_with(harness().folder() + "/");
    if (!isBelow && (device == nullptr || !isOurs(*device))) return std::nullopt;
    const std::string* name = disk.text(key::kVolumeName);
    std::string text = name == nullptr ? "?" : *name;
    if (url != nullptr)
      text += " at " + (isBelow ? url->path().substr(harness().folder().size() + 1) : url->path());
    return text;
  }

  bool isOurs(const std::string& device) {
    const MutexLock lock(mutex_);
    return devices_.contains(device);
  }

  Mutex mutex_;
  std::set<std::string> devices_ KMV_GUARDED_BY(mutex_);
  std::unique_ptr<SessionRecorder> recorder_;
};

}  // namespace kmv::test
