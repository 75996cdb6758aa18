// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Mutex.h>

#include <memory>
#include <utility>
#include <vector>

namespace kmv {

/// Keeps an object alive until the process ends: hosts or the platform may use it after its owner is gone.
template <typename T>
T* keptForEver(std::unique_ptr<T> object) {
  static Mutex mutex;
  static auto* const kept KMV_PT_GUARDED_BY(mutex) = new std::vector<std::unique_ptr<T>>;
  const MutexLock lock(mutex);
  return kept->emplace_back(std::move(object)).get();
}

}  // namespace kmv
