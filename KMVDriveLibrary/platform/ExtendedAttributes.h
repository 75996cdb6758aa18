// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/ChildProcess.h"

namespace kmv {

/// Attributes of files, links followed.
/// Names and values are bytes.
/// Every member may be called from any thread and waits for the volume.
class ExtendedAttributes {
 public:
  virtual ~ExtendedAttributes() = default;

  /// The value; none when the attribute is missing or unreadable.
  virtual std::optional<std::string> get(const std::string& path, const std::string& name) = 0;
  /// All names that `get` knows, in no order; none when the item cannot be asked.
  virtual std::optional<std::vector<std::string>> names(const std::string& path) = 0;
  /// False when the system refuses.
  virtual bool set(const std::string& path, const std::string& name, const std::string& value) = 0;

  /// One run of the platform's attribute tool for one attribute.
  struct ToolRun {
    std::string tool;    ///< its absolute path
    std::string option;  ///< "-p" to print the attribute, "-w" to write it
    std::string name;    ///< of the attribute, as the library knows it; the backend spells it for its tool
    std::optional<std::string> value;  ///< only when it is written
    std::string path;
    bool collectsErrors = false;  ///< see `ChildProcess::Request`
  };
  /// Runs the tool with the option, the attribute's name, the value and the path, in this order.
  virtual ChildProcess::Result runTool(const ToolRun& run) = 0;

 protected:
  static ChildProcess::Request requestFor(const ToolRun& run, std::string spelledName) {
    ChildProcess::Request request{run.tool, {run.option, std::move(spelledName)}, run.collectsErrors};
    if (run.value) request.arguments.push_back(*run.value);
    request.arguments.push_back(run.path);
    return request;
  }
};

}  // namespace kmv
