// SPDX-License-Identifier: MIT
#include "platform/linux/LinuxPlatform.h"

#include <utility>

#include "platform/linux/session/LinuxSession.h"

namespace kmv {

LinuxPlatform::LinuxPlatform(LinuxOptions options)
    : options_(std::move(options)),
      volumes_(options_),
      ioRegistry_(options_),
      childProcess_(options_.programRoot),
      extendedAttributes_(childProcess_) {}

std::unique_ptr<NetServiceBrowser> LinuxPlatform::makeServiceBrowser() {
  return std::make_unique<NoServiceBrowser>();
}

std::unique_ptr<DiskArbitrationSession> LinuxPlatform::makeDiskArbitrationSession() {
  return std::make_unique<LinuxSession>(options_);
}

}  // namespace kmv
