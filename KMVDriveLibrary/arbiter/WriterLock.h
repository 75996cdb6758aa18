// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/KMVDiskArbiter.h>

#include <memory>
#include <utility>

namespace kmv {

/// The units of the registry's semaphore; a writer holds all of them.
inline constexpr int kWriterUnits = 8;

/// Keeps other writers out of the registry while it lives. Taken before the asset queue, never after it.
class WriterLock {
 public:
  explicit WriterLock(const KMVDiskArbiter& arbiter)
      : semaphore_(arbiter.readerWriterSemaphore()), hold_(*semaphore_, kWriterUnits) {}

 private:
  std::shared_ptr<Semaphore> semaphore_;
  Semaphore::ExclusiveHold hold_;
};

}  // namespace kmv
