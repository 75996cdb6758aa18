// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DriveDictionary.h>

#include <algorithm>

#include "base/DriveDictionaryWatcher.h"

namespace kmv {

DriveDictionary::DriveDictionary(Dictionary contents)
    : contents_(std::make_shared<const Dictionary>(std::move(contents))) {}

DriveDictionary::~DriveDictionary() = default;

DictionarySnapshot DriveDictionary::snapshot() const {
  const MutexLock lock(mutex_);
  return contents_;
}

std::optional<Value> DriveDictionary::value(std::string_view key) const {
  const DictionarySnapshot contents = snapshot();
  const Value* value = contents->find(key);
  return value == nullptr ? std::nullopt : std::optional<Value>(*value);
}

void DriveDictionary::set(std::string_view key, Value value) {
  update([&](Dictionary& contents) { contents.set(key, std::move(value)); });
}

void DriveDictionary::remove(std::string_view key) {
  update([&](Dictionary& contents) { contents.remove(key); });
}

void DriveDictionary::update(const std::function<void(Dictionary&)>& edit) {
  std::vector<std::weak_ptr<Watcher>> watchers;
  DictionarySnapshot replaced;  // released outside the lock: its values may have the host's destructors
  {
    const MutexLock lock(mutex_);
    auto changed = std::make_shared<Dictionary>(*contents_);
    edit(*changed);
    replaced = std::exchange(contents_, std::move(changed));
    watchers = watchers_;
  }
  for (const auto& weak : watchers) {
    if (const auto watcher = weak.lock()) watcher->contentsChanged(this);
  }
}

void DriveDictionary::addWatcher(const std::shared_ptr<Watcher>& watcher) {
  const MutexLock lock(mutex_);
  // Sweeps out tables that were destroyed with the drive in them.
  std::erase_if(watchers_, [](const auto& weak) { return weak.expired(); });
  watchers_.push_back(watcher);
}

void DriveDictionary::removeWatcher(const Watcher* watcher) {
  const MutexLock lock(mutex_);
  std::erase_if(watchers_, [&](const auto& weak) {
    const auto present = weak.lock();
    return present == nullptr || present.get() == watcher;
  });
}

}  // namespace kmv
