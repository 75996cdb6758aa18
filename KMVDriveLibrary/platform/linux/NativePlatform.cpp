// SPDX-License-Identifier: MIT
#include "platform/NativePlatform.h"

#include "platform/linux/LinuxPlatform.h"

namespace kmv {

std::unique_ptr<Platform> makeNativePlatform() {
  return std::make_unique<LinuxPlatform>();
}

}  // namespace kmv
