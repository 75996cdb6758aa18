// SPDX-License-Identifier: MIT
#pragma once

#include "platform/Platform.h"
#include "platform/linux/LinuxAttributes.h"
#include "platform/linux/LinuxFileSystem.h"
#include "platform/linux/LinuxIORegistry.h"
#include "platform/linux/LinuxOptions.h"
#include "platform/linux/Queues.h"

namespace kmv {

/// The machine that this process runs on.
class LinuxPlatform final : public Platform {
 public:
  explicit LinuxPlatform(LinuxOptions options = {});

  QueueFactory& queues() override;
  FileSystem& fileSystem() override;
  IORegistry& ioRegistry() override;
  SystemInformation& systemInformation() override;
  Clock& clock() override;
  ExtendedAttributes& extendedAttributes() override;
  ChildProcess& childProcess() override;
  std::unique_ptr<NetServiceBrowser> makeServiceBrowser() override;
  std::unique_ptr<DiskArbitrationSession> makeDiskArbitrationSession() override;

 private:
  LinuxOptions options_;
  LinuxQueueFactory queues_;
  LinuxFileSystem fileSystem_;
  LinuxIORegistry ioRegistry_;
  LinuxSystemInformation systemInformation_;
  LinuxClock clock_;
  LinuxExtendedAttributes extendedAttributes_;
  LinuxChildProcess childProcess_;
};

}  // namespace kmv
