// SPDX-License-Identifier: MIT
#include "platform/linux/LinuxPlatform.h"

#include <utility>

#include "platform/linux/LinuxSession.h"

namespace kmv {

LinuxPlatform::LinuxPlatform(LinuxOptions options)
    : options_(std::move(options)),
      fileSystem_(options_),
      ioRegistry_(options_),
      childProcess_(options_.programRoot) {}

QueueFactory& LinuxPlatform::queues() {
  return queues_;
}

FileSystem& LinuxPlatform::fileSystem() {
  return fileSystem_;
}

IORegistry& LinuxPlatform::ioRegistry() {
  return ioRegistry_;
}

SystemInformation& LinuxPlatform::systemInformation() {
  return systemInformation_;
}

ExtendedAttributes& LinuxPlatform::extendedAttributes() {
  return extendedAttributes_;
}

ChildProcess& LinuxPlatform::childProcess() {
  return childProcess_;
}

Clock& LinuxPlatform::clock() {
  return clock_;
}

std::unique_ptr<NetServiceBrowser> LinuxPlatform::makeServiceBrowser() {
  return std::make_unique<NoServiceBrowser>();
}

std::unique_ptr<DiskArbitrationSession> LinuxPlatform::makeDiskArbitrationSession() {
  return std::make_unique<LinuxSession>(options_);
}

std::unique_ptr<Platform> makeNativePlatform() {
  return std::make_unique<LinuxPlatform>();
}

}  // namespace kmv
