// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Value.h>

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

namespace kmv {

class PresentDriveTable;

/// What the library knows of one mounted drive: the platform's description merged with the registry's keys
/// and whatever the listeners added. A live, shared object: the registry, the notifications and the listeners
/// all hold the same one.
///
/// Threads: every member may be called from any thread. The content is an immutable snapshot that each change
/// replaces,
///          so a reader never sees half a change.
/// Owner:   held by `std::shared_ptr`; identity is the object's address.
class KMV_EXPORT DriveDictionary {
 public:
  explicit DriveDictionary(Dictionary contents = {});
  ~DriveDictionary();
  DriveDictionary(const DriveDictionary&) = delete;
  DriveDictionary& operator=(const DriveDictionary&) = delete;

  /// The present content; later changes do not show in it. Costs a reference, not a copy.
  DictionarySnapshot snapshot() const;

  /// The value under `key` now, or none.
  std::optional<Value> value(std::string_view key) const;

  /// Sets or removes one entry.
  void set(std::string_view key, Value value);
  void remove(std::string_view key);

  /// Applies several changes as one: readers see all of them or none. `edit` runs under this dictionary's
  /// lock, so it must call neither this dictionary nor the registry.
  void update(const std::function<void(Dictionary&)>& edit);

 private:
  friend class PresentDriveTable;
  class Watcher;  // a table that finds drives by their content and must hear of changes
  void addWatcher(const std::shared_ptr<Watcher>& watcher);
  void removeWatcher(const Watcher* watcher);

  mutable std::mutex mutex_;
  DictionarySnapshot contents_;
  std::vector<std::weak_ptr<Watcher>> watchers_;
};

}  // namespace kmv
