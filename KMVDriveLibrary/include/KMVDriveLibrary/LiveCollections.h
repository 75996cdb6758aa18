// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace kmv {

/// A thread-safe list.
/// Membership is a hash look-up, removal of one element O(log n).
/// Enumeration order: order of insertion.
/// Threads: every member may be called from any thread; `snapshot` is atomic.
template <typename T, typename Hash = std::hash<T>>
class LiveArray {
 public:
  void append(T value) {
    const MutexLock lock(mutex_);
    insert(std::move(value));
  }
  bool contains(const T& value) const {
    const MutexLock lock(mutex_);
    return index_.find(value) != index_.end();
  }
  /// Removes every element equal to `value`; false when there was none.
  bool remove(const T& value) {
    const MutexLock lock(mutex_);
    auto [first, last] = index_.equal_range(value);
    if (first == last) return false;
    for (auto it = first; it != last; ++it) elements_.erase(it->second);
    index_.erase(first, last);
    return true;
  }
  std::size_t count() const {
    const MutexLock lock(mutex_);
    return elements_.size();
  }
  std::vector<T> snapshot() const {
    const MutexLock lock(mutex_);
    std::vector<T> all;
    all.reserve(elements_.size());
    for (const auto& [position, value] : elements_) all.push_back(value);
    return all;
  }

 protected:
  void insert(T value) KMV_REQUIRES(mutex_) {
    elements_.emplace(next_, value);
    index_.emplace(std::move(value), next_++);
  }

  mutable Mutex mutex_;
  std::map<std::uint64_t, T> elements_ KMV_GUARDED_BY(mutex_);
  std::unordered_multimap<T, std::uint64_t, Hash> index_ KMV_GUARDED_BY(mutex_);
  std::uint64_t next_ KMV_GUARDED_BY(mutex_) = 0;
};

/// As `LiveArray`, but holds equal elements only once.
template <typename T, typename Hash = std::hash<T>>
class LiveSet : private LiveArray<T, Hash> {
  using Base = LiveArray<T, Hash>;

 public:
  using Base::contains;
  using Base::count;
  using Base::remove;
  using Base::snapshot;

  /// False when an equal element was there already.
  bool add(T value) {
    const MutexLock lock(this->mutex_);
    if (this->index_.find(value) != this->index_.end()) return false;
    Base::insert(std::move(value));
    return true;
  }
};

/// A thread-safe dictionary.
/// Enumeration order: ascending keys.
/// Threads: every member may be called from any thread; `snapshot` is atomic.
template <typename Key, typename T, typename Hash = std::hash<Key>>
class LiveDictionary {
 public:
  using Entry = std::pair<Key, T>;

  std::optional<T> find(const Key& key) const {
    const MutexLock lock(mutex_);
    const auto found = entries_.find(key);
    return found == entries_.end() ? std::nullopt : std::optional<T>(found->second);
  }
  bool contains(const Key& key) const { return find(key).has_value(); }
  /// Sets an entry and returns what it replaced.
  std::optional<T> set(const Key& key, T value) {
    const MutexLock lock(mutex_);
    const auto [entry, isNew] = entries_.try_emplace(key, value);
    if (isNew) return std::nullopt;
    std::swap(entry->second, value);
    return value;
  }
  /// False when there was no such entry.
  bool remove(const Key& key) {
    const MutexLock lock(mutex_);
    return entries_.erase(key) != 0;
  }
  void removeAll() {
    const MutexLock lock(mutex_);
    entries_.clear();
  }
  std::size_t count() const {
    const MutexLock lock(mutex_);
    return entries_.size();
  }
  std::vector<Entry> snapshot() const {
    std::vector<Entry> all;
    {
      const MutexLock lock(mutex_);
      all.assign(entries_.begin(), entries_.end());
    }
    std::sort(all.begin(), all.end(), [](const Entry& a, const Entry& b) { return a.first < b.first; });
    return all;
  }

 private:
  mutable Mutex mutex_;
  std::unordered_map<Key, T, Hash> entries_ KMV_GUARDED_BY(mutex_);
};

}  // namespace kmv
