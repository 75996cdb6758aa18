// SPDX-License-Identifier: MIT
#pragma once

#include "support/Testing.h"

namespace kmv {

/// What handlers on other threads write and a test reads. Copies are the same thing: a handler takes one of
/// its own, since it may still be running on its thread when the test that set it is over.
template <typename T>
class Guarded {
 public:
  /// What `use` makes of the content, which nobody else sees meanwhile.
  template <typename Use>
  decltype(auto) with(Use&& use) const {
    const std::lock_guard lock(held_->mutex);
    return std::forward<Use>(use)(held_->content);
  }

 private:
  struct Held {
    std::mutex mutex;
    T content{};
  };
  std::shared_ptr<Held> held_ = std::make_shared<Held>();
};

}  // namespace kmv
