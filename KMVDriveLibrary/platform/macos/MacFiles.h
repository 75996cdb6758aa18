// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Files.h"

namespace kmv::macos {

/// See posix/RegularFile.h and posix/ItemAttributes.h.
class MacFiles final : public Files {
 public:
  FileBytes readRegularFile(const std::string& path, std::size_t mostBytes) override;
  std::unique_ptr<FileStream> openForReading(const std::string& path) override;
  ItemKind itemKind(const std::string& path) override;
  std::optional<Dictionary> attributesOfItem(const std::string& path) override;
  std::optional<std::string> realPath(const std::string& path) override;
  std::optional<std::string> currentFolder() override;
  const std::vector<std::string>& pathAliasPrefixes() override;
};

}  // namespace kmv::macos
