// SPDX-License-Identifier: MIT
#include "platform/simulated/EventBus.h"

#include <map>
#include <string>
#include <utility>

#include "base/Fatal.h"

namespace kmv::simulated {

std::vector<std::shared_ptr<SessionState>> EventBus::listeningSessions() {
  std::erase_if(sessions_, [](const auto& session) { return session->isClosed(); });
  std::vector<std::shared_ptr<SessionState>> listening;
  for (const auto& session : sessions_) {
    if (session->isRegistered()) listening.push_back(session);
  }
  return listening;
}

void EventBus::begin(const std::shared_ptr<SessionState>& session, const DiskTable& present) {
  for (auto disk = present.rbegin(); disk != present.rend(); ++disk) {
    Event event{simulation::PendingEvent::Kind::appeared, disk->first, disk->second, {}};
    if (applyFaults(event)) post(session, std::move(event));
  }
  begun_.push_back(session);
  tellBegunSessions();
}

/// While events are held, theirs may be among them.
void EventBus::tellBegunSessions() {
  if (!pending_.empty()) return;
  for (const auto& session : std::exchange(begun_, {})) session->tellPresentDisksTold();
}

/// False when the event is lost.
bool EventBus::applyFaults(Event& event) {
  using simulation::ArmedFaults;
  if (ArmedFaults::strikes(faults_.events)) return false;
  if (ArmedFaults::strikes(faults_.descriptions)) event.description.reset();
  event.missing = std::exchange(faults_.droppedKeys, {});
  event.vanishes = faults_.vanishing.erase(event.disk) > 0;
  return true;
}

void EventBus::emit(Event event) {
  const auto sessions = listeningSessions();
  if (sessions.empty()) return;  // nobody listens: an armed fault waits for an event that somebody hears
  if (!applyFaults(event)) return;
  for (const auto& session : sessions) post(session, event);
}

void EventBus::post(const std::shared_ptr<SessionState>& session, Event event) {
  if (holding_) {
    pending_.push_back({session, std::move(event)});
  } else {
    session->deliver(std::move(event));
  }
}

void EventBus::release() {
  holding_ = false;
  for (const Held& held : std::exchange(pending_, {})) held.session->deliver(held.event);
  tellBegunSessions();
}

std::vector<simulation::PendingEvent> EventBus::pending() const {
  std::vector<simulation::PendingEvent> all;
  for (const Held& held : pending_) all.push_back({held.event.kind, held.event.disk});
  return all;
}

EventBus::Held EventBus::takeHeld(std::size_t index) {
  if (index >= pending_.size()) {
    fatal("event " + std::to_string(index) + " was asked for, but only " + std::to_string(pending_.size()) +
          " are held");
  }
  Held held = std::move(pending_[index]);
  pending_.erase(pending_.begin() + static_cast<std::ptrdiff_t>(index));
  return held;
}

void EventBus::deliver(std::size_t index) {
  const Held held = takeHeld(index);
  held.session->deliver(held.event);
  tellBegunSessions();
}

void EventBus::lose(std::size_t index) {
  takeHeld(index);
  tellBegunSessions();
}

void EventBus::shuffle() {
  // Shuffles the turns of the disks (Fisher-Yates); each turn then takes its disk's next event.
  std::map<simulation::DiskId, std::vector<Held>> eventsOfDisk;
  std::vector<simulation::DiskId> turns;
  for (Held& held : pending_) {
    turns.push_back(held.event.disk);
    eventsOfDisk[turns.back()].push_back(std::move(held));
  }
  for (std::size_t last = turns.size(); last > 1; --last)
    std::swap(turns[last - 1], turns[random_.below(last)]);
  std::map<simulation::DiskId, std::size_t> taken;
  pending_.clear();
  for (const simulation::DiskId disk : turns)
    pending_.push_back(std::move(eventsOfDisk[disk][taken[disk]++]));
}

void EventBus::rescan(const DiskTable& present) {
  pending_.clear();
  for (const auto& session : listeningSessions()) {
    for (Event& event : session->differences(present)) post(session, std::move(event));
  }
}

}  // namespace kmv::simulated
