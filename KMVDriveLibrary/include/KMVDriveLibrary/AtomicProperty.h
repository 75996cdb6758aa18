// SPDX-License-Identifier: MIT
#pragma once

#include <mutex>
#include <utility>

namespace kmv {

/// A value that threads read and replace as a whole. What it held is let go of outside its lock.
template <typename T>
class AtomicProperty {
 public:
  explicit AtomicProperty(T value = {}) : value_(std::move(value)) {}

  T get() const {
    const std::lock_guard lock(mutex_);
    return value_;
  }
  void set(T value) {
    [[maybe_unused]] T old;  // goes outside the lock
    {
      const std::lock_guard lock(mutex_);
      old = std::move(value_);
      value_ = std::move(value);
    }
  }

 private:
  mutable std::mutex mutex_;
  T value_;
};

}  // namespace kmv
