// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "platform/DiskArbitrationSession.h"

namespace kmv::simulated {

class EventBus;

struct Event {
  enum class Cause { ordinary, move, replacedPath };

  testing::PendingEvent::Kind kind;
  testing::DiskId disk;
  std::optional<Dictionary> description;  // as it was when the event happened
  ChangedKeys changedKeys;        // those of this change; on delivery, those since the last news of a path
  Cause cause = Cause::ordinary;  // a session needs it to make sense of the event when others were lost
  std::set<std::string> missing = {};  // entries that this event's description lacks
  bool vanishes = false;               // the disk is unplugged when the library asks for its description
};

/// Every disk that is, in the order in which they were plugged in.
using DiskTable = std::map<testing::DiskId, Dictionary>;

/// What one session has to remember. The handle that the library owns may go while events are still on their
/// way.
class SessionState : public std::enable_shared_from_this<SessionState> {
 public:
  void setQueue(std::shared_ptr<SerialQueue> queue);
  /// Checks that the library registers once and after the queue.
  void registerCallbacks(const DiskCallbacks& callbacks, void* context);
  bool isRegistered() const { return registered_; }
  void close() { closed_ = true; }
  bool isClosed() const { return closed_; }

  /// Hands the event to the session's queue. `vanish` is called when a disk is to go while it is being
  /// described.
  void deliver(Event event, const std::function<void(testing::DiskId)>& vanish);

  /// The events that lead from what was delivered to what is.
  std::vector<Event> differences(const DiskTable& present) const;

 private:
  struct Told {
    Dictionary last;
    Dictionary lastWithPathNews;  // of the last event that carried or lost a path
  };

  bool reconcile(Event& event, const std::function<void(testing::DiskId)>& vanish);
  bool reconcileDisappearance(Event& event) const;
  void remember(Event& event);
  void rememberChange(Event& event);
  void call(const Event& event, const std::function<void(testing::DiskId)>& vanish) const;

  std::shared_ptr<SerialQueue> queue_;
  DiskCallbacks callbacks_;
  void* context_ = nullptr;
  bool registered_ = false;
  bool closed_ = false;
  std::map<testing::DiskId, Told> told_;
};

/// The library's handle.
class SimulatedSession : public DiskArbitrationSession {
 public:
  using MountedAt = std::function<const Dictionary*(const std::string& path)>;

  /// `begin` is called once the callbacks are registered; `mountedAt` tells what is mounted at a path.
  SimulatedSession(std::shared_ptr<SessionState> state, std::function<void()> begin, MountedAt mountedAt);
  ~SimulatedSession() override;
  SimulatedSession(const SimulatedSession&) = delete;
  SimulatedSession& operator=(const SimulatedSession&) = delete;

  void setQueue(std::shared_ptr<SerialQueue> queue) override;
  void registerCallbacks(const DiskCallbacks& callbacks, void* context) override;
  std::unique_ptr<Disk> diskFromVolumePath(const URL& volume) override;

 private:
  std::shared_ptr<SessionState> state_;
  std::function<void()> begin_;
  MountedAt mountedAt_;
};

}  // namespace kmv::simulated
