// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace kmv {

/// What hosts or the platform may use until the process ends, whatever becomes of the one who made it.
template <typename T>
T* keptForEver(std::unique_ptr<T> object) {
  static std::mutex mutex;
  static auto* const kept = new std::vector<std::unique_ptr<T>>;
  const std::lock_guard lock(mutex);
  return kept->emplace_back(std::move(object)).get();
}

}  // namespace kmv
