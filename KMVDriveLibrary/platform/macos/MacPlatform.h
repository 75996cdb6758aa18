// SPDX-License-Identifier: MIT
#pragma once

#include <memory>

#include "platform/Platform.h"
#include "platform/macos/MacAttributes.h"
#include "platform/macos/MacFiles.h"
#include "platform/macos/MacIORegistry.h"
#include "platform/macos/MacSystem.h"
#include "platform/macos/MacTreeWalk.h"
#include "platform/macos/MacVolumes.h"
#include "platform/macos/Queues.h"
#include "platform/posix/PosixClock.h"

namespace kmv::macos {

/// The machine that this process runs on.
class MacPlatform final : public Platform {
 public:
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
  MacQueueFactory queues_;
  MacVolumes volumes_;
  MacFiles files_;
  MacTreeWalk treeWalk_;
  MacIORegistry ioRegistry_;
  MacSystemInformation systemInformation_;
  PosixClock clock_;
  MacChildProcess childProcess_;
  MacExtendedAttributes extendedAttributes_{childProcess_};
};

}  // namespace kmv::macos
