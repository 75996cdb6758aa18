// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/RequiredProperty.h>

#include <string>

#include "base/Fatal.h"

namespace kmv {

void stopForNull(std::string_view property) {
  fatal(std::string(property) + " was set to null");
}

}  // namespace kmv
