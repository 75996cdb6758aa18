// SPDX-License-Identifier: MIT
#pragma once

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <vector>

namespace kmv {

/// A table that does not keep its members alive: whoever holds the last reference to one takes it out by
/// letting go. Enumeration order: order of insertion. Threads: every member may be called from any thread; an
/// enumeration holds what it found alive, so it never sees half a change.
template <typename T>
class WeakTable {
 public:
  /// Adds `member`; nothing happens when it is in the table, or null.
  void add(const std::shared_ptr<T>& member) {
    if (member == nullptr || contains(member)) return;
    const std::lock_guard lock(mutex_);
    if (members_.size() >= roomBeforeSweep_) sweep();
    members_.push_back(member);
  }
  bool contains(const std::shared_ptr<T>& member) const {
    const auto all = allObjects();
    return std::find(all.begin(), all.end(), member) != all.end();
  }
  /// The members that are alive.
  std::vector<std::shared_ptr<T>> allObjects() const {
    const std::lock_guard lock(mutex_);
    std::vector<std::shared_ptr<T>> all;
    all.reserve(members_.size());
    for (const auto& weak : members_) {
      if (auto member = weak.lock()) all.push_back(std::move(member));
    }
    return all;
  }
  std::size_t count() const { return allObjects().size(); }

 private:
  static constexpr std::size_t kSmallestRoom = 16;

  /// Takes out what is gone, at a cost that the additions since the last time have paid for.
  void sweep() {
    std::erase_if(members_, [](const auto& weak) { return weak.expired(); });
    roomBeforeSweep_ = std::max(kSmallestRoom, 2 * members_.size());
  }

  mutable std::mutex mutex_;
  std::vector<std::weak_ptr<T>> members_;
  std::size_t roomBeforeSweep_ = kSmallestRoom;
};

}  // namespace kmv
