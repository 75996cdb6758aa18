// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>

#include <stdexcept>
#include <string>
#include <utility>

namespace kmv {

/// A named exception; `what()` is the reason.
/// The library throws one: "Invalid URL".
class KMV_EXPORT Exception : public std::runtime_error {
 public:
  Exception(std::string name, const std::string& reason)
      : std::runtime_error(reason), name_(std::move(name)) {}
  const std::string& name() const { return name_; }

 private:
  std::string name_;
};

}  // namespace kmv
