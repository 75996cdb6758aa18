// SPDX-License-Identifier: MIT
#include "base/Fatal.h"

#include <cstdio>
#include <cstdlib>

namespace kmv {

void fatal(std::string_view message) {
  std::fprintf(stderr, "KMVDriveLibrary: %.*s\n", static_cast<int>(message.size()), message.data());
  std::fflush(stderr);
  std::abort();
}

}  // namespace kmv
