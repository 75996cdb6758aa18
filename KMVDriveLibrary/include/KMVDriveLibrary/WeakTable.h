// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <vector>

namespace kmv {

/// A set of weak references: a member leaves it when its last owner releases it.
/// Enumeration order: order of insertion.
/// Threads: every member may be called from any thread; an enumeration is a snapshot that keeps its members
/// alive.
template <typename T>
class WeakTable {
 public:
  /// Adds `member`, atomically: does nothing when it is null or in the table already.
  void add(const std::shared_ptr<T>& member) {
    if (member == nullptr) return;
    Members alive;  // released outside the lock: one may be the last reference
    const MutexLock lock(mutex_);
    alive = living();
    if (std::find(alive.begin(), alive.end(), member) != alive.end()) return;
    if (members_.size() >= roomBeforeSweep_) sweep();
    members_.push_back(member);
  }
  bool contains(const std::shared_ptr<T>& member) const {
    const auto all = allObjects();
    return std::find(all.begin(), all.end(), member) != all.end();
  }
  /// The members that are alive.
  std::vector<std::shared_ptr<T>> allObjects() const {
    const MutexLock lock(mutex_);
    return living();
  }
  std::size_t count() const { return allObjects().size(); }

 private:
  using Members = std::vector<std::shared_ptr<T>>;
  static constexpr std::size_t kSmallestRoom = 16;

  Members living() const KMV_REQUIRES(mutex_) {
    Members all;
    all.reserve(members_.size());
    for (const auto& weak : members_) {
      if (auto member = weak.lock()) all.push_back(std::move(member));
    }
    return all;
  }

  /// Removes expired members; amortised O(1) for each addition, since the room doubles.
  void sweep() KMV_REQUIRES(mutex_) {
    std::erase_if(members_, [](const auto& weak) { return weak.expired(); });
    roomBeforeSweep_ = std::max(kSmallestRoom, 2 * members_.size());
  }

  mutable Mutex mutex_;
  std::vector<std::weak_ptr<T>> members_ KMV_GUARDED_BY(mutex_);
  std::size_t roomBeforeSweep_ KMV_GUARDED_BY(mutex_) = kSmallestRoom;
};

}  // namespace kmv
