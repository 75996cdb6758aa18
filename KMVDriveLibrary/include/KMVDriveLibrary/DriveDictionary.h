// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/Mutex.h>
#include <KMVDriveLibrary/Value.h>

#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace kmv {

class PresentDriveTable;

/// What the library knows about one mounted drive: the platform's description merged with the registry's keys
/// and the listeners' additions.
/// A live, shared object: the registry, the notifications and the listeners all hold the same one.
///
/// Threads: every member may be called from any thread.
///          The content is an immutable snapshot that each change replaces, so a reader never sees a partial
///          change.
/// Owner:   held by `std::shared_ptr`; its identity is its address.
class KMV_EXPORT DriveDictionary {
 public:
  explicit DriveDictionary(Dictionary contents = {});
  ~DriveDictionary();
  DriveDictionary(const DriveDictionary&) = delete;
  DriveDictionary& operator=(const DriveDictionary&) = delete;

  /// An immutable snapshot of the present content.
  /// O(1): shares the storage.
  DictionarySnapshot snapshot() const;

  /// The value under `key` now, or none.
  std::optional<Value> value(std::string_view key) const;

  /// Sets or removes one entry.
  void set(std::string_view key, Value value);
  void remove(std::string_view key);

  /// Applies several changes atomically: readers see all of them or none.
  /// `edit` runs under this dictionary's lock, so it must call neither this dictionary nor the registry.
  void update(const std::function<void(Dictionary&)>& edit);

 private:
  friend class PresentDriveTable;
  class Watcher;  // an index over the content of drives; is told of every change
  void addWatcher(const std::shared_ptr<Watcher>& watcher);
  void removeWatcher(const Watcher* watcher);

  mutable Mutex mutex_;
  DictionarySnapshot contents_ KMV_GUARDED_BY(mutex_);
  std::vector<std::weak_ptr<Watcher>> watchers_ KMV_GUARDED_BY(mutex_);
};

}  // namespace kmv
