// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/NotificationCenter.h>

#include <KMVDriveLibrary/DriveDictionary.h>
#include <KMVDriveLibrary/Mutex.h>

#include <algorithm>
#include <atomic>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kmv {
namespace {

/// Kept small for the cache: a post iterates over all of them.
struct Entry {
  NotificationCenter::Observer observer;
  std::atomic<bool> registered{true};
};

/// What an observer registered for.
struct Wish {
  std::optional<std::string> name;  // none: every name
  const void* object = nullptr;     // null: every object
};

/// A snapshot that posts iterate over. Immutable once published (copy-on-write).
struct ObserverList {
  struct Slot {
    const Entry* entry;
    const void* object;
  };

  void append(const std::shared_ptr<Entry>& entry, const void* object) {
    slots.push_back({entry.get(), object});
    owners.push_back(entry);
  }

  std::vector<Slot> slots;
  std::vector<std::shared_ptr<Entry>> owners;
};

using SharedList = std::shared_ptr<const ObserverList>;

std::shared_ptr<ObserverList> copyOf(const SharedList& list) {
  auto copy = std::make_shared<ObserverList>();
  if (list != nullptr) {
    copy->slots = list->slots;
    copy->owners = list->owners;
  }
  return copy;
}

}  // namespace

/// Each observed name has a list of its own, which also holds the observers of all names, so a post looks up
/// and iterates over one list.
struct NotificationCenter::State {
  void add(const std::shared_ptr<Entry>& entry, const Wish& wish) {
    const MutexLock lock(mutex);
    if (!wish.name) {
      appendTo(everyName, entry, wish.object);
      for (auto& [name, list] : byName) appendTo(list, entry, wish.object);
      return;
    }
    auto [it, isNew] = byName.try_emplace(*wish.name);
    if (isNew) it->second = everyName;
    appendTo(it->second, entry, wish.object);
  }

  void remove(const std::shared_ptr<Entry>& entry, const Wish& wish) {
    std::vector<SharedList> replaced;  // released outside the lock: observers may have the host's destructors
    const MutexLock lock(mutex);
    entry->registered.store(false, std::memory_order_release);
    if (!wish.name) {
      replaced.push_back(takeFrom(everyName, entry));
      for (auto& [name, list] : byName) replaced.push_back(takeFrom(list, entry));
      return;
    }
    const auto it = byName.find(*wish.name);
    replaced.push_back(takeFrom(it->second, entry));
    const bool onlyEveryName = it->second->owners.size() == (everyName ? everyName->owners.size() : 0);
    if (onlyEveryName) byName.erase(it);
  }

  SharedList listFor(const std::string& name) {
    const MutexLock lock(mutex);
    const auto it = byName.find(name);
    return it == byName.end() ? everyName : it->second;
  }

 private:
  static void appendTo(SharedList& list, const std::shared_ptr<Entry>& entry, const void* object) {
    auto longer = copyOf(list);
    longer->append(entry, object);
    list = std::move(longer);
  }

  static SharedList takeFrom(SharedList& list, const std::shared_ptr<Entry>& entry) {
    auto shorter = std::make_shared<ObserverList>();
    for (std::size_t i = 0; i < list->owners.size(); ++i) {
      if (list->owners[i] != entry) shorter->append(list->owners[i], list->slots[i].object);
    }
    return std::exchange(list, std::move(shorter));
  }

  Mutex mutex;
  SharedList everyName KMV_GUARDED_BY(mutex);
  std::unordered_map<std::string, SharedList> byName KMV_GUARDED_BY(mutex);
};

struct NotificationCenter::Registration::Core {
  std::weak_ptr<State> state;
  std::shared_ptr<Entry> entry;
  Wish wish;
};

NotificationCenter::Registration::Registration(std::unique_ptr<Core> core) : core_(std::move(core)) {}
NotificationCenter::Registration::Registration() = default;
NotificationCenter::Registration::~Registration() {
  unregister();
}
NotificationCenter::Registration::Registration(Registration&& other) noexcept = default;

NotificationCenter::Registration& NotificationCenter::Registration::operator=(Registration&& other) noexcept {
  if (this != &other) {
    unregister();
    core_ = std::move(other.core_);
  }
  return *this;
}

void NotificationCenter::Registration::unregister() {
  const auto core = std::move(core_);
  if (core == nullptr) return;
  if (const auto state = core->state.lock()) state->remove(core->entry, core->wish);
}

NotificationCenter::NotificationCenter() : state_(std::make_shared<State>()) {}
NotificationCenter::~NotificationCenter() = default;

NotificationCenter& NotificationCenter::defaultCenter() {
  static auto* center = new NotificationCenter;  // never destroyed: queues may post until the process is gone
  return *center;
}

NotificationCenter::Registration NotificationCenter::addObserver(std::optional<std::string_view> name,
                                                                 Observer observer, const void* object) {
  auto core = std::make_unique<Registration::Core>();
  core->state = state_;
  core->entry = std::make_shared<Entry>();
  core->entry->observer = std::move(observer);
  if (name) core->wish.name = std::string(*name);
  core->wish.object = object;
  state_->add(core->entry, core->wish);
  return Registration(std::move(core));
}

void NotificationCenter::post(const Notification& notification) {
  const SharedList list = state_->listFor(notification.name);
  if (list == nullptr) return;
  const void* identity = notification.object.identity();
  for (const ObserverList::Slot& slot : list->slots) {
    if (slot.object != nullptr && slot.object != identity) continue;
    // Asked of the entry itself: it may have been unregistered since this snapshot, in whichever list.
    if (slot.entry->registered.load(std::memory_order_acquire)) slot.entry->observer(notification);
  }
}

std::shared_ptr<DriveDictionary> NotificationObject::drive() const {
  const auto* drive = std::get_if<std::shared_ptr<DriveDictionary>>(&storage_);
  return drive == nullptr ? nullptr : *drive;
}

DictionarySnapshot NotificationObject::dictionary() const {
  if (const auto live = drive()) return live->snapshot();
  const auto* dictionary = std::get_if<DictionarySnapshot>(&storage_);
  return dictionary == nullptr ? nullptr : *dictionary;
}

std::shared_ptr<Object> NotificationObject::object() const {
  const auto* object = std::get_if<std::shared_ptr<Object>>(&storage_);
  return object == nullptr ? nullptr : *object;
}

const void* NotificationObject::identity() const {
  return std::visit(
      [](const auto& held) -> const void* {
        if constexpr (std::is_same_v<std::decay_t<decltype(held)>, std::monostate>) {
          return nullptr;
        } else {
          return held.get();
        }
      },
      storage_);
}

}  // namespace kmv
