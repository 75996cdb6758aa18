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

class SessionState;

/// What a session asks of the machine.
class SessionMachine {
 public:
  virtual ~SessionMachine() = default;
  /// The session's callbacks are registered: it is to hear of every disk.
  virtual void begin(const std::shared_ptr<SessionState>& session) = 0;
  virtual std::optional<testing::DiskId> diskMountedAt(const std::string& path) const = 0;
  /// None when the disk is gone.
  virtual std::optional<Dictionary> presentDescription(testing::DiskId disk) const = 0;
  // Commands: carried out at once. The result is the dissenter's record, or none.
  virtual std::optional<Dictionary> requestUnmount(testing::DiskId disk) = 0;
  virtual std::optional<Dictionary> requestRename(testing::DiskId disk, const std::string& newName) = 0;
};

/// Whom to tell of a command's end.
struct CommandRequest {
  std::shared_ptr<const SessionMachine> machine;
  CommandCompletion completion;
  void* context;
};

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

  /// Tells a command's end on the session's queue.
  void complete(testing::DiskId disk, std::optional<Dictionary> dissenter, const CommandRequest& request);

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
  SimulatedSession(std::shared_ptr<SessionState> state, std::shared_ptr<SessionMachine> machine);
  ~SimulatedSession() override;
  SimulatedSession(const SimulatedSession&) = delete;
  SimulatedSession& operator=(const SimulatedSession&) = delete;

  void setQueue(std::shared_ptr<SerialQueue> queue) override;
  void registerCallbacks(const DiskCallbacks& callbacks, void* context) override;
  std::unique_ptr<Disk> diskFromVolumePath(const URL& volume) override;
  void unmount(const Disk& disk, CommandCompletion completion, void* context) override;
  void rename(const Disk& disk, const std::string& newName, CommandCompletion completion,
              void* context) override;

 private:
  std::shared_ptr<SessionState> state_;
  std::shared_ptr<SessionMachine> machine_;
};

}  // namespace kmv::simulated
