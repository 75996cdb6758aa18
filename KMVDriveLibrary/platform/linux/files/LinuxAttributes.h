// SPDX-License-Identifier: MIT
#pragma once

#include <string>

#include "platform/ExtendedAttributes.h"

namespace kmv {

/// An attribute's name as ordinary file systems know it: one without a name space gets "user." in front.
std::string attributeNameInSpace(const std::string& name);

/// True when, after this error with the name in the name space, the file system may know the plain name.
bool mayBePlainAttribute(int error);

/// The value of a file's attribute, looked for as `LinuxExtendedAttributes` says; links followed.
std::optional<std::string> attributeOf(const std::string& path, const std::string& name);

/// Ordinary file systems know names only in name spaces, so a name without one is read and written with
/// "user." in front. A file system of another kind (FUSE) may serve it as it stands; it is asked for that
/// when it has not the other.
class LinuxExtendedAttributes final : public ExtendedAttributes {
 public:
  /// `tools` runs the attribute tool; it must outlive this object.
  explicit LinuxExtendedAttributes(ChildProcess& tools) : tools_(tools) {}
  std::optional<std::string> get(const std::string& path, const std::string& name) override {
    return attributeOf(path, name);
  }
  std::optional<std::vector<std::string>> names(const std::string& path) override;
  bool set(const std::string& path, const std::string& name, const std::string& value) override;
  ChildProcess::Result runTool(const ToolRun& run) override;

 private:
  ChildProcess& tools_;
};

}  // namespace kmv
