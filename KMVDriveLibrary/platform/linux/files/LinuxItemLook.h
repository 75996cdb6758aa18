// SPDX-License-Identifier: MIT
#pragma once

#include <atomic>
#include <optional>
#include <string>

#include "platform/posix/ItemLook.h"

namespace kmv {

/// Asks with statx and, on kernels that have it, getxattrat. Learns at its first look whether a FUSE volume
/// caches names.
class LinuxItemLook final : public ItemLook {
 public:
  /// See `makeItemLook`.
  LinuxItemLook(std::string attribute, const std::string& volume);

  void lookAt(int descriptor, const char* name, SeenItem& item) override;
  std::optional<std::string> valueByPath(const std::string& path) const override;

 private:
  bool lookThroughItem(int descriptor, const char* name, SeenItem& item);
  std::optional<std::string> valueByName(int descriptor, const char* name);
  template <typename Get>
  std::optional<std::string> firstValue(const Get& get) const;

  const std::string plainName_;
  const std::string name_;
  const bool isFuse_;
  std::atomic<bool> cacheIsKnown_{false};
  std::atomic<bool> cachesNothing_{false};
  std::atomic<bool> hasGetxattrat_{true};
};

}  // namespace kmv
