// SPDX-License-Identifier: MIT
#pragma once

#include <cstddef>
#include <optional>
#include <string>

namespace kmv {

/// Attributes of files, links followed. Names and values are bytes. Every member may be called from any
/// thread and waits for the volume.
class ExtendedAttributes {
 public:
  virtual ~ExtendedAttributes() = default;

  /// The value; none when there is no such attribute, or it cannot be read.
  virtual std::optional<std::string> get(const std::string& path, const std::string& name) = 0;
  /// False when the system refuses.
  virtual bool set(const std::string& path, const std::string& name, const std::string& value) = 0;

  /// What the attribute tool is to call the attribute `name` of this file when it reads it, or writes it.
  virtual std::string nameForReading(const std::string& path, const std::string& name) = 0;
  virtual std::string nameForWriting(const std::string& name) = 0;
};

}  // namespace kmv
