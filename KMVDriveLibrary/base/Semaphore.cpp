// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Semaphore.h>

#include "base/Fatal.h"

namespace kmv {

Semaphore::Semaphore(int count) : count_(count) {}

void Semaphore::wait() {
  std::unique_lock lock(mutex_);
  freed_.wait(lock, [&] { return count_ > 0; });
  --count_;
}

void Semaphore::signal() {
  {
    std::lock_guard lock(mutex_);
    ++count_;
  }
  freed_.notify_all();
}

int Semaphore::count() const {
  std::lock_guard lock(mutex_);
  return count_;
}

Semaphore::ExclusiveHold::ExclusiveHold(Semaphore& semaphore, int units)
    : semaphore_(semaphore), units_(units) {
  std::unique_lock lock(semaphore_.mutex_);
  if (semaphore_.holder_ == std::this_thread::get_id()) {
    lock.unlock();
    fatal(
        "a writer was called while the same thread holds the writers' semaphore (from an observer of a "
        "removal by UUID?); "
        "it would wait for ever");
  }
  semaphore_.freed_.wait(lock, [&] { return semaphore_.count_ >= units_; });
  semaphore_.count_ -= units_;
  semaphore_.holder_ = std::this_thread::get_id();
}

Semaphore::ExclusiveHold::~ExclusiveHold() {
  {
    std::lock_guard lock(semaphore_.mutex_);
    semaphore_.holder_ = {};
    semaphore_.count_ += units_;
  }
  semaphore_.freed_.notify_all();
}

}  // namespace kmv
