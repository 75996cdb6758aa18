// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <memory>
#include <string>

#include "platform/posix/WalkedFolder.h"

namespace kmv {

/// The questions of a walk to the volume: lists folders and looks at their items.
/// Threads: any, several at once, one a step.
class WalkReader {
 public:
  /// Folders further down are opened by path: descriptors of all above them would be too many.
  static constexpr std::size_t kDeepestKeptOpen = 64;

  WalkReader(const std::string& attribute, const std::string& volume)
      : look_(makeItemLook(attribute, volume)) {}

  /// What cannot be listed to its end is not listed at all.
  void list(WalkedFolder& folder);

  /// Looks at the items from `begin` to `end`.
  void look(WalkedFolder& folder, std::size_t begin, std::size_t end);

  ItemLook& items() { return *look_; }

 private:
  std::unique_ptr<ItemLook> look_;
};

}  // namespace kmv
