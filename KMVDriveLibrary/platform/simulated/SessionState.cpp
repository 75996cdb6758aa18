// SPDX-License-Identifier: MIT
#include "platform/simulated/SessionState.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <algorithm>
#include <iterator>
#include <utility>

#include "base/DifferingKeys.h"
#include "base/Fatal.h"

namespace kmv::simulated {
namespace {

using Kind = simulation::PendingEvent::Kind;

/// The disk of an event, for the length of the callback.
class EventDisk final : public Disk {
 public:
  EventDisk(const Event& event, const std::function<void(simulation::DiskId)>& vanish)
      : event_(event), vanish_(vanish) {}

  std::optional<Dictionary> copyDescription() const override {
    if (!event_.vanishes) return event_.description;
    vanish_(event_.disk);
    return std::nullopt;
  }

 private:
  const Event& event_;
  const std::function<void(simulation::DiskId)>& vanish_;
};

bool contains(const ChangedKeys& keys, const char* key) {
  return std::find(keys.begin(), keys.end(), key) != keys.end();
}

bool samePath(const Dictionary& a, const Dictionary& b) {
  const URL* first = a.url(key::kVolumePath);
  const URL* second = b.url(key::kVolumePath);
  return first != nullptr && second != nullptr ? *first == *second : first == second;
}

/// A move without a new name has no event of its own: the disk disappears here and appears there.
bool movedWithoutNewName(const Dictionary& before, const Dictionary& after, const ChangedKeys& changed) {
  return before.contains(key::kVolumePath) && after.contains(key::kVolumePath) &&
         contains(changed, key::kVolumePath) && !contains(changed, key::kVolumeName);
}

void append(std::vector<Event>& events, std::vector<Event> more) {
  events.insert(events.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

}  // namespace

void SessionState::registerCallbacks(const DiskCallbacks& callbacks, void* context) {
  if (!queue_) fatal("registerCallbacks was called before setQueue");
  if (registered_) fatal("registerCallbacks was called twice");
  callbacks_ = callbacks;
  context_ = context;
  registered_ = true;
}

void SessionState::async(std::function<void()> task) {
  if (!queue_) fatal("a command was given before setQueue");
  queue_->async([self = shared_from_this(), task = std::move(task)] {
    if (!self->closed_) task();
  });
}

void SessionState::deliver(Event event) {
  // What could not be described does not count as told: the next rescan reports it again.
  if (event.description && !event.vanishes) {
    if (!reconcile(event)) return;
    for (const std::string& key : event.missing) event.description->remove(key);
    remember(event);
  }
  async([this, event = std::move(event)] { call(event); });
}

void SessionState::tellPresentDisksTold() {
  if (callbacks_.presentDisksTold == nullptr) return;
  async([this] { callbacks_.presentDisksTold(context_); });
}

/// Makes the event consistent with what the library knows, whatever was lost or reordered; false when there
/// is nothing to tell.
bool SessionState::reconcile(Event& event) {
  if (event.kind == Kind::disappeared) return reconcileDisappearance(event);
  const auto told = told_.find(event.disk);
  if (told == told_.end()) {
    event.kind = Kind::appeared;
    return true;
  }
  const Dictionary& before = told->second.last;
  if (event.kind == Kind::appeared && samePath(before, *event.description)) return false;
  const bool moved =
      event.cause != Event::Cause::replacedPath &&
      movedWithoutNewName(before, *event.description, differingKeys(before, *event.description));
  if (event.kind == Kind::descriptionChanged && !moved) return true;
  deliver({Kind::disappeared, event.disk, before, {}});
  event.kind = Kind::appeared;
  return true;
}

/// A disk disappears with the description that the library last heard, so that the library recognises it. A
/// move away from a place that the library does not know is not told: the appearance that follows tells it.
bool SessionState::reconcileDisappearance(Event& event) const {
  const auto told = told_.find(event.disk);
  if (told == told_.end()) return false;
  if (event.cause == Event::Cause::move && !samePath(told->second.last, *event.description)) return false;
  event.description = told->second.last;
  return true;
}

void SessionState::remember(Event& event) {
  switch (event.kind) {
    case Kind::appeared:
      told_.insert_or_assign(event.disk, Told{*event.description, *event.description});
      return;
    case Kind::disappeared:
      told_.erase(event.disk);
      return;
    case Kind::descriptionChanged:
      rememberChange(event);
  }
}

/// Adds the keys that differ since the last news of a path.
void SessionState::rememberChange(Event& event) {
  Told& told = told_.at(event.disk);
  ChangedKeys& keys = event.changedKeys;
  for (std::string& key : differingKeys(told.lastWithPathNews, *event.description)) {
    if (!contains(keys, key.c_str())) keys.push_back(std::move(key));
  }
  std::sort(keys.begin(), keys.end());
  told.last = *event.description;
  if (contains(keys, key::kVolumePath)) told.lastWithPathNews = *event.description;
}

void SessionState::call(const Event& event) const {
  EventDisk disk(event, vanish_);
  switch (event.kind) {
    case Kind::appeared:
      if (callbacks_.appeared != nullptr) callbacks_.appeared(&disk, context_);
      return;
    case Kind::disappeared:
      if (callbacks_.disappeared != nullptr) callbacks_.disappeared(&disk, context_);
      return;
    case Kind::descriptionChanged:
      if (callbacks_.descriptionChanged != nullptr)
        callbacks_.descriptionChanged(&disk, &event.changedKeys, context_);
      return;
  }
}

std::vector<Event> SessionState::differences(const DiskTable& present) const {
  std::vector<Event> all, changed, appeared;  // `all` begins with the disappearances
  for (const auto& [disk, told] : told_) {
    const auto now = present.find(disk);
    if (now == present.end()) {
      all.push_back({Kind::disappeared, disk, told.last, {}});
      continue;
    }
    ChangedKeys keys = differingKeys(told.last, now->second);
    if (keys.empty()) continue;
    if (movedWithoutNewName(told.last, now->second, keys)) {
      all.push_back({Kind::disappeared, disk, told.last, {}});
      appeared.push_back({Kind::appeared, disk, now->second, {}});
    } else {
      changed.push_back({Kind::descriptionChanged, disk, now->second, std::move(keys)});
    }
  }
  for (const auto& [disk, description] : present) {
    if (!told_.contains(disk)) appeared.push_back({Kind::appeared, disk, description, {}});
  }
  append(all, std::move(changed));
  append(all, std::move(appeared));
  return all;
}

}  // namespace kmv::simulated
