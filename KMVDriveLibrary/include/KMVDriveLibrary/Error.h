// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Value.h>

#include <string>

namespace kmv {

/// Why something failed, as a value; identified by domain and code.
struct Error {
  std::string domain;
  int code = 0;
  Dictionary userInfo = {};
};

}  // namespace kmv
