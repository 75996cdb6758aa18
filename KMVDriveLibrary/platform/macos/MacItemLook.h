// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "platform/posix/ItemLook.h"

namespace kmv::macos {

/// Opens nothing: the platform reads attributes by path.
class MacItemLook final : public ItemLook {
 public:
  explicit MacItemLook(std::string attribute) : attribute_(std::move(attribute)) {}

  void lookAt(int descriptor, const char* name, SeenItem& item) override;
  std::optional<std::string> valueByPath(const std::string& path) const override;

 private:
  const std::string attribute_;
};

}  // namespace kmv::macos
