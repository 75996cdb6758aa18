// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Semaphore.h>

#include <algorithm>

#include "base/Fatal.h"

namespace kmv {

Semaphore::Semaphore(int count) : count_(count) {}

void Semaphore::wait() {
  MutexLock lock(mutex_);
  while (count_ <= 0) freed_.wait(lock);
  --count_;
}

void Semaphore::signal() {
  {
    const MutexLock lock(mutex_);
    ++count_;
  }
  freed_.notifyAll();
}

int Semaphore::count() const {
  const MutexLock lock(mutex_);
  return count_;
}

Semaphore::ExclusiveHold::ExclusiveHold(Semaphore& semaphore, int units)
    : semaphore_(semaphore), units_(units), holder_(std::this_thread::get_id()) {
  MutexLock lock(semaphore_.mutex_);
  auto& holders = semaphore_.holders_;
  if (std::find(holders.begin(), holders.end(), holder_) != holders.end()) {
    lock.unlock();
    fatal(
        "a writer was called while the same thread holds the writers' semaphore (from an observer of a "
        "removal by UUID?); it would wait for ever");
  }
  while (semaphore_.count_ < units_) semaphore_.freed_.wait(lock);
  semaphore_.count_ -= units_;
  holders.push_back(holder_);
}

Semaphore::ExclusiveHold::~ExclusiveHold() {
  {
    const MutexLock lock(semaphore_.mutex_);
    std::erase(semaphore_.holders_, holder_);
    semaphore_.count_ += units_;
  }
  semaphore_.freed_.notifyAll();
}

}  // namespace kmv
