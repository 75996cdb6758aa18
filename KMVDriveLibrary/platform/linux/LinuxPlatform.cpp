// SPDX-License-Identifier: MIT
#include "platform/linux/LinuxPlatform.h"

#include <memory>
#include <utility>

#include "platform/linux/session/LinuxSession.h"

namespace kmv {

LinuxPlatform::LinuxPlatform(LinuxOptions options)
    : options_(std::move(options)),
      mounts_(std::make_shared<MountTable>(options_)),
      volumes_(options_, mounts_),
      ioRegistry_(options_, mounts_),
      childProcess_(options_.programRoot),
      extendedAttributes_(childProcess_) {}

std::unique_ptr<NetServiceBrowser> LinuxPlatform::makeServiceBrowser() {
  return std::make_unique<NoServiceBrowser>();
}

std::unique_ptr<DiskArbitrationSession> LinuxPlatform::makeDiskArbitrationSession() {
  return std::make_unique<LinuxSession>(options_, mounts_);
}

}  // namespace kmv
