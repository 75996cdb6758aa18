// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <functional>
#include <map>
#include <memory>
#include <vector>

#include "platform/DiskArbitrationSession.h"
#include "platform/simulated/Event.h"

namespace kmv::simulated {

/// What a session remembers. Shared, since the library's handle may be destroyed while events are in flight.
class SessionState : public std::enable_shared_from_this<SessionState> {
 public:
  /// `vanish` unplugs a disk that goes away while it is being described.
  explicit SessionState(std::function<void(simulation::DiskId)> vanish) : vanish_(std::move(vanish)) {}

  void setQueue(std::shared_ptr<SerialQueue> queue) { queue_ = std::move(queue); }
  /// Aborts the process when the library registers twice or before it set the queue.
  void registerCallbacks(const DiskCallbacks& callbacks, void* context);
  bool isRegistered() const { return registered_; }
  void close() { closed_ = true; }
  bool isClosed() const { return closed_; }

  /// Runs the task on the session's queue, unless the session is closed by then.
  void async(std::function<void()> task);

  /// Hands the event to the session's queue, reconciled with what the session delivered before.
  void deliver(Event event);

  /// Every disk that existed at registration has been delivered.
  void tellPresentDisksTold();

  /// The events that lead from what was delivered to what is.
  std::vector<Event> differences(const DiskTable& present) const;

 private:
  /// A disk as the library knows it.
  struct Told {
    Dictionary last;
    Dictionary lastWithPathNews;  // of the last event that carried or lost a path
  };

  bool reconcile(Event& event);
  bool reconcileDisappearance(Event& event) const;
  void remember(Event& event);
  void rememberChange(Event& event);
  void call(const Event& event) const;

  const std::function<void(simulation::DiskId)> vanish_;
  std::shared_ptr<SerialQueue> queue_;
  DiskCallbacks callbacks_;
  void* context_ = nullptr;
  bool registered_ = false;
  bool closed_ = false;
  std::map<simulation::DiskId, Told> told_;
};

}  // namespace kmv::simulated
