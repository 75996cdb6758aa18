// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/NetServiceBrowser.h>

#include <memory>

#include "platform/ChildProcess.h"
#include "platform/Clock.h"
#include "platform/DiskArbitrationSession.h"
#include "platform/ExtendedAttributes.h"
#include "platform/Files.h"
#include "platform/IORegistry.h"
#include "platform/QueueFactory.h"
#include "platform/SystemInformation.h"
#include "platform/TreeWalk.h"
#include "platform/Volumes.h"

namespace kmv {

/// Everything the library knows about the machine, as narrow interfaces; the only type that rooms get.
class Platform {
 public:
  virtual ~Platform() = default;

  virtual QueueFactory& queues() = 0;
  virtual Volumes& volumes() = 0;
  virtual Files& files() = 0;
  virtual TreeWalk& treeWalk() = 0;
  virtual IORegistry& ioRegistry() = 0;
  virtual SystemInformation& systemInformation() = 0;
  virtual Clock& clock() = 0;
  virtual ExtendedAttributes& extendedAttributes() = 0;
  virtual ChildProcess& childProcess() = 0;
  virtual std::unique_ptr<NetServiceBrowser> makeServiceBrowser() = 0;
  virtual std::unique_ptr<DiskArbitrationSession> makeDiskArbitrationSession() = 0;

  /// The platform in use: the native one unless another was installed before the first call.
  /// Thread: any.
  /// Lifetime: the process.
  KMV_EXPORT static Platform& current();

  /// Makes `platform` the one in use.
  /// False, without effect, when `current` was called or another was installed before.
  KMV_EXPORT static bool install(std::unique_ptr<Platform> platform);
};

}  // namespace kmv
