// SPDX-License-Identifier: MIT
#include "platform/NativePlatform.h"

#include "platform/macos/MacPlatform.h"

namespace kmv {

std::unique_ptr<Platform> makeNativePlatform() {
  return std::make_unique<macos::MacPlatform>();
}

}  // namespace kmv
