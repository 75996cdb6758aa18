// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "platform/simulated/Random.h"
#include "platform/simulated/SessionState.h"

namespace kmv::simulated {

/// The way from the machine to its sessions, on which events can be held, lost, reordered or damaged.
class EventBus {
 public:
  EventBus(std::uint64_t seed, simulation::ArmedFaults& faults) : random_(seed), faults_(faults) {}

  void add(std::shared_ptr<SessionState> session) { sessions_.push_back(std::move(session)); }
  /// Reports the present disks to a session that has just registered, newest first.
  void begin(const std::shared_ptr<SessionState>& session, const DiskTable& present);

  /// Takes an event that has just happened.
  void emit(Event event);

  void hold() { holding_ = true; }
  void release();
  std::vector<simulation::PendingEvent> pending() const;
  void deliver(std::size_t index);
  void lose(std::size_t index);
  void shuffle();
  void rescan(const DiskTable& present);

 private:
  struct Held {
    std::shared_ptr<SessionState> session;
    Event event;
  };

  bool applyFaults(Event& event);
  void post(const std::shared_ptr<SessionState>& session, Event event);
  void tellBegunSessions();
  Held takeHeld(std::size_t index);
  std::vector<std::shared_ptr<SessionState>> listeningSessions();

  Random random_;
  simulation::ArmedFaults& faults_;
  std::vector<std::shared_ptr<SessionState>> sessions_;
  std::vector<Held> pending_;
  std::vector<std::shared_ptr<SessionState>> begun_;  // not told yet that they know the present disks
  bool holding_ = false;
};

}  // namespace kmv::simulated
