// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/Platform.h"
#include "platform/linux/LinuxOptions.h"
#include "platform/linux/LinuxSystem.h"
#include "platform/linux/devices/LinuxIORegistry.h"
#include "platform/linux/files/LinuxAttributes.h"
#include "platform/linux/files/LinuxFiles.h"
#include "platform/linux/files/LinuxTreeWalk.h"
#include "platform/linux/mounts/LinuxVolumes.h"
#include "platform/linux/mounts/MountTable.h"
#include "platform/linux/queues/Queues.h"
#include "platform/posix/PosixClock.h"

namespace kmv {

/// The machine that this process runs on.
class LinuxPlatform final : public Platform {
 public:
  explicit LinuxPlatform(LinuxOptions options = {});

  QueueFactory& queues() override { return queues_; }
  Volumes& volumes() override { return volumes_; }
  Files& files() override { return files_; }
  TreeWalk& treeWalk() override { return treeWalk_; }
  IORegistry& ioRegistry() override { return ioRegistry_; }
  SystemInformation& systemInformation() override { return systemInformation_; }
  Clock& clock() override { return clock_; }
  ExtendedAttributes& extendedAttributes() override { return extendedAttributes_; }
  ChildProcess& childProcess() override { return childProcess_; }
  std::unique_ptr<NetServiceBrowser> makeServiceBrowser() override;
  std::unique_ptr<DiskArbitrationSession> makeDiskArbitrationSession() override;

 private:
  LinuxOptions options_;
  LinuxQueueFactory queues_;
  const std::shared_ptr<MountTable> mounts_;  // sessions and readers may outlive the platform
  LinuxVolumes volumes_;
  LinuxFiles files_;
  LinuxTreeWalk treeWalk_;
  LinuxIORegistry ioRegistry_;
  LinuxSystemInformation systemInformation_;
  PosixClock clock_;
  LinuxChildProcess childProcess_;
  LinuxExtendedAttributes extendedAttributes_;
};

}  // namespace kmv
