// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>

#include <utility>

namespace kmv {

/// A value that threads read and replace atomically.
/// The old value is released outside the lock, so its destructor may use the property.
template <typename T>
class AtomicProperty {
 public:
  explicit AtomicProperty(T value = {}) : value_(std::move(value)) {}

  T get() const {
    const MutexLock lock(mutex_);
    return value_;
  }
  void set(T value) {
    [[maybe_unused]] T old;  // released outside the lock
    {
      const MutexLock lock(mutex_);
      old = std::move(value_);
      value_ = std::move(value);
    }
  }

 private:
  mutable Mutex mutex_;
  T value_ KMV_GUARDED_BY(mutex_);
};

}  // namespace kmv
