// SPDX-License-Identifier: MIT
#pragma once

#include <string>
#include <utility>

#include "platform/ChildProcess.h"
#include "platform/ExtendedAttributes.h"

namespace kmv {

/// An attribute's name as ordinary file systems know it: one without a name space gets "user." in front.
std::string attributeNameInSpace(const std::string& name);

/// True when, after this error with the name in the name space, the file system may know the plain name.
bool mayBePlainAttribute(int error);

/// Ordinary file systems know names only in name spaces, so a name without one is read and written with
/// "user." in front. A file system of another kind (FUSE) may serve it as it stands; it is asked for that
/// when it has not the other.
class LinuxExtendedAttributes final : public ExtendedAttributes {
 public:
  std::optional<std::string> get(const std::string& path, const std::string& name) override;
  bool set(const std::string& path, const std::string& name, const std::string& value) override;
  std::string nameForReading(const std::string& path, const std::string& name) override;
  std::string nameForWriting(const std::string& name) override;
};

class LinuxChildProcess final : public ChildProcess {
 public:
  /// `root` is put before the places of programs; empty for the machine's own.
  explicit LinuxChildProcess(std::string root) : root_(std::move(root)) {}
  Result run(const Request& request) override;
  bool exists(const std::string& program) override;

 private:
  std::string root_;
};

}  // namespace kmv
