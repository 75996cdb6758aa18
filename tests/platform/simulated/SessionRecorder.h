// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DescriptionKeys.h>
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/Platform.h"

namespace kmv {

/// Listens to a session as the library does, and writes a line for each event: "appeared CARD at
/// /Volumes/CARD", "changed CARD (DAVolumePath)", "disappeared without description".
class SessionRecorder {
 public:
  SessionRecorder()
      : queue_(Platform::current().queues().makeSerialQueue("session")),
        session_(Platform::current().makeDiskArbitrationSession()) {
    session_->setQueue(queue_);
  }

  void start() { session_->registerCallbacks({&appeared, &disappeared, &changed}, this); }

  /// The lines since the last call.
  std::vector<std::string> heard() { return std::exchange(lines_, {}); }
  /// The queues on which the events arrived, and the last description.
  const std::vector<bool>& onItsQueue() const { return onItsQueue_; }
  const std::optional<Dictionary>& last() const { return last_; }
  DiskArbitrationSession& session() { return *session_; }
  void close() { session_.reset(); }

 private:
  static void appeared(Disk* disk, void* self) {
    static_cast<SessionRecorder*>(self)->note("appeared", *disk);
  }
  static void disappeared(Disk* disk, void* self) {
    static_cast<SessionRecorder*>(self)->note("disappeared", *disk);
  }
  static void changed(Disk* disk, const ChangedKeys* keys, void* self) {
    std::string list;
    for (const std::string& key : *keys) list += (list.empty() ? "" : " ") + key;
    auto* recorder = static_cast<SessionRecorder*>(self);
    recorder->note("changed", *disk);
    recorder->lines_.back() += " (" + list + ")";
  }

  void note(std::string line, const Disk& disk) {
    onItsQueue_.push_back(queue_->isCurrent());
    last_ = disk.copyDescription();
    if (!last_) {
      lines_.push_back(line + " without description");
      return;
    }
    if (const std::string* name = last_->text(key::kVolumeName)) line += " " + *name;
    if (const URL* path = last_->url(key::kVolumePath)) line += " at " + path->path();
    lines_.push_back(std::move(line));
  }

  std::shared_ptr<SerialQueue> queue_;
  std::unique_ptr<DiskArbitrationSession> session_;
  std::vector<std::string> lines_;
  std::vector<bool> onItsQueue_;
  std::optional<Dictionary> last_;
};

using Lines = std::vector<std::string>;

}  // namespace kmv
