// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "platform/simulated/Random.h"
#include "platform/simulated/SimulatedSession.h"

namespace kmv::simulated {

/// The way from the machine to its sessions, where events can be held, lost, put into another order, or
/// damaged.
class EventBus {
 public:
  /// `vanish` unplugs a disk.
  EventBus(std::uint64_t seed, std::function<void(testing::DiskId)> vanish);

  std::shared_ptr<SessionState> openSession();
  /// Reports what is there to a session that has just registered, newest first.
  void begin(const std::shared_ptr<SessionState>& session, const DiskTable& present);

  /// Takes an event that has just happened.
  void emit(Event event);

  void hold() { held_ = true; }
  void release();
  std::vector<testing::PendingEvent> pending() const;
  void deliver(std::size_t index);
  void lose(std::size_t index);
  void shuffle();
  void rescan(const DiskTable& present);

  void loseNext() { ++toLose_; }
  void failNextDescription() { ++toFail_; }
  void dropKeyFromNextDescription(const std::string& key) { toDrop_.insert(key); }
  void vanishWhileDescribed(testing::DiskId disk) { toVanish_.insert(disk); }

 private:
  struct Held {
    std::shared_ptr<SessionState> session;
    Event event;
  };

  bool applyFaults(Event& event);
  void post(const std::shared_ptr<SessionState>& session, Event event);
  Held takeHeld(std::size_t index);
  std::vector<std::shared_ptr<SessionState>> listeningSessions();

  Random random_;
  std::function<void(testing::DiskId)> vanish_;
  std::vector<std::shared_ptr<SessionState>> sessions_;
  std::vector<Held> pending_;
  bool held_ = false;
  int toLose_ = 0;
  int toFail_ = 0;
  std::set<std::string> toDrop_;
  std::set<testing::DiskId> toVanish_;
};

}  // namespace kmv::simulated
