// SPDX-License-Identifier: MIT
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/ExtendedAttributes.h"

namespace kmv::macos {

/// The value of an item's attribute; `options` are those of the platform's call.
std::optional<std::string> attributeOf(const std::string& path, const std::string& name, int options);

/// Names have no name spaces on this platform: they go to its calls and to its tool as they stand.
class MacExtendedAttributes final : public ExtendedAttributes {
 public:
  /// `tools` runs the attribute tool; it must outlive this object.
  explicit MacExtendedAttributes(ChildProcess& tools) : tools_(tools) {}
  std::optional<std::string> get(const std::string& path, const std::string& name) override {
    return attributeOf(path, name, /*options=*/0);
  }
  std::optional<std::vector<std::string>> names(const std::string& path) override;
  bool set(const std::string& path, const std::string& name, const std::string& value) override;
  ChildProcess::Result runTool(const ToolRun& run) override { return tools_.run(requestFor(run, run.name)); }

 private:
  ChildProcess& tools_;
};

}  // namespace kmv::macos
