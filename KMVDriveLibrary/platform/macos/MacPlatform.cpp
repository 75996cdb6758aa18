// SPDX-License-Identifier: MIT
#include "platform/macos/MacPlatform.h"

#include "platform/macos/DiskSession.h"
#include "platform/macos/MacServiceBrowser.h"

namespace kmv::macos {

std::unique_ptr<NetServiceBrowser> MacPlatform::makeServiceBrowser() {
  return std::make_unique<MacServiceBrowser>();
}

std::unique_ptr<DiskArbitrationSession> MacPlatform::makeDiskArbitrationSession() {
  return std::make_unique<DiskSession>();
}

}  // namespace kmv::macos
