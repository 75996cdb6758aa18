// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

namespace kmv {

/// Counts the asynchronous work that would use its owner after free if the owner were destroyed now.
/// Threads: every member may be called from any thread.
class OpenWork {
 public:
  /// Open as long as it, or a copy of it, exists. It must not outlive the work, wherever that is stored.
  using Token = std::shared_ptr<const void>;

  Token open() const { return token_; }
  bool isOpen() const { return token_.use_count() > 1; }

 private:
  Token token_ = std::make_shared<char>();
};

}  // namespace kmv
