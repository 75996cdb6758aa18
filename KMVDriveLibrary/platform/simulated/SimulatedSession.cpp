// SPDX-License-Identifier: MIT
#include "platform/simulated/SimulatedSession.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <algorithm>

#include "base/Fatal.h"
#include "platform/simulated/Descriptions.h"

namespace kmv::simulated {
namespace {

using Kind = testing::PendingEvent::Kind;

class EventDisk : public Disk {
 public:
  EventDisk(const Event& event, const std::function<void(testing::DiskId)>& vanish)
      : event_(event), vanish_(vanish) {}

  std::optional<Dictionary> copyDescription() const override {
    if (!event_.vanishes) return event_.description;
    vanish_(event_.disk);
    return std::nullopt;
  }

 private:
  const Event& event_;
  const std::function<void(testing::DiskId)>& vanish_;
};

/// A disk that the library asked for: described as it is at the moment of each question.
class PresentDisk : public Disk {
 public:
  PresentDisk(testing::DiskId disk, const SessionMachine& machine) : disk_(disk), machine_(machine) {}

  std::optional<Dictionary> copyDescription() const override { return machine_.presentDescription(disk_); }
  testing::DiskId id() const { return disk_; }

 private:
  testing::DiskId disk_;
  const SessionMachine& machine_;
};

testing::DiskId idOf(const Disk& disk) {
  const auto* const ours = dynamic_cast<const PresentDisk*>(&disk);
  if (ours == nullptr) fatal("a command needs a disk that diskFromVolumePath gave");
  return ours->id();
}

bool contains(const ChangedKeys& keys, const char* key) {
  return std::find(keys.begin(), keys.end(), key) != keys.end();
}

bool samePath(const Dictionary& a, const Dictionary& b) {
  const URL* first = a.url(key::kVolumePath);
  const URL* second = b.url(key::kVolumePath);
  return first != nullptr && second != nullptr ? *first == *second : first == second;
}

/// A move without a new name has no event of its own: it disappears here and appears there.
bool movedWithoutNewName(const Dictionary& before, const Dictionary& after, const ChangedKeys& changed) {
  return before.contains(key::kVolumePath) && after.contains(key::kVolumePath) &&
         contains(changed, key::kVolumePath) && !contains(changed, key::kVolumeName);
}

}  // namespace

void SessionState::setQueue(std::shared_ptr<SerialQueue> queue) {
  queue_ = std::move(queue);
}

void SessionState::registerCallbacks(const DiskCallbacks& callbacks, void* context) {
  if (!queue_) fatal("registerCallbacks was called before setQueue");
  if (registered_) fatal("registerCallbacks was called twice");
  callbacks_ = callbacks;
  context_ = context;
  registered_ = true;
}

void SessionState::deliver(Event event, const std::function<void(testing::DiskId)>& vanish) {
  // What could not be described was not told: a comparison later reports it again.
  if (event.description && !event.vanishes) {
    if (!reconcile(event, vanish)) return;
    for (const std::string& key : event.missing) event.description->remove(key);
    remember(event);
  }
  queue_->async([self = shared_from_this(), event = std::move(event), vanish] { self->call(event, vanish); });
}

/// Makes the event fit what the library knows, whatever was lost or came out of its order; false when there
/// is nothing to tell.
bool SessionState::reconcile(Event& event, const std::function<void(testing::DiskId)>& vanish) {
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
  deliver({Kind::disappeared, event.disk, before, {}}, vanish);
  event.kind = Kind::appeared;
  return true;
}

/// The library is to recognise what goes, so it hears of the disk as it heard last. Of a move that it does
/// not know to have begun here, it hears on arrival.
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

void SessionState::call(const Event& event, const std::function<void(testing::DiskId)>& vanish) const {
  if (closed_) return;
  EventDisk disk(event, vanish);
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

void SessionState::complete(testing::DiskId disk, std::optional<Dictionary> dissenter,
                            const CommandRequest& request) {
  if (!queue_) fatal("a command was given before setQueue");
  queue_->async([self = shared_from_this(), disk, dissenter = std::move(dissenter), request] {
    if (self->closed_) return;
    PresentDisk present(disk, *request.machine);
    request.completion(&present, dissenter ? &*dissenter : nullptr, request.context);
  });
}

std::vector<Event> SessionState::differences(const DiskTable& present) const {
  std::vector<Event> disappeared;
  std::vector<Event> changed;
  std::vector<Event> appeared;
  for (const auto& [disk, told] : told_) {
    const auto now = present.find(disk);
    if (now == present.end()) {
      disappeared.push_back({Kind::disappeared, disk, told.last, {}});
      continue;
    }
    ChangedKeys keys = differingKeys(told.last, now->second);
    if (keys.empty()) continue;
    if (movedWithoutNewName(told.last, now->second, keys)) {
      disappeared.push_back({Kind::disappeared, disk, told.last, {}});
      appeared.push_back({Kind::appeared, disk, now->second, {}});
    } else {
      changed.push_back({Kind::descriptionChanged, disk, now->second, std::move(keys)});
    }
  }
  for (const auto& [disk, description] : present) {
    if (told_.find(disk) == told_.end()) appeared.push_back({Kind::appeared, disk, description, {}});
  }
  std::vector<Event> all = std::move(disappeared);
  all.insert(all.end(), std::make_move_iterator(changed.begin()), std::make_move_iterator(changed.end()));
  all.insert(all.end(), std::make_move_iterator(appeared.begin()), std::make_move_iterator(appeared.end()));
  return all;
}

SimulatedSession::SimulatedSession(std::shared_ptr<SessionState> state,
                                   std::shared_ptr<SessionMachine> machine)
    : state_(std::move(state)), machine_(std::move(machine)) {}

SimulatedSession::~SimulatedSession() {
  state_->close();
}

void SimulatedSession::setQueue(std::shared_ptr<SerialQueue> queue) {
  state_->setQueue(std::move(queue));
}

void SimulatedSession::registerCallbacks(const DiskCallbacks& callbacks, void* context) {
  state_->registerCallbacks(callbacks, context);
  machine_->begin(state_);
}

std::unique_ptr<Disk> SimulatedSession::diskFromVolumePath(const URL& volume) {
  const auto disk = volume.isFileURL() ? machine_->diskMountedAt(volume.path()) : std::nullopt;
  return disk ? std::make_unique<PresentDisk>(*disk, *machine_) : nullptr;
}

void SimulatedSession::unmount(const Disk& disk, CommandCompletion completion, void* context) {
  const testing::DiskId id = idOf(disk);
  state_->complete(id, machine_->requestUnmount(id), {machine_, completion, context});
}

void SimulatedSession::rename(const Disk& disk, const std::string& newName, CommandCompletion completion,
                              void* context) {
  const testing::DiskId id = idOf(disk);
  state_->complete(id, machine_->requestRename(id, newName), {machine_, completion, context});
}

}  // namespace kmv::simulated
