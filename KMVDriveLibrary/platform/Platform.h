// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/NetServiceBrowser.h>
#include <KMVDriveLibrary/Queue.h>

#include <memory>
#include <string>

#include "platform/ChildProcess.h"
#include "platform/Clock.h"
#include "platform/DiskArbitrationSession.h"
#include "platform/ExtendedAttributes.h"
#include "platform/FileSystem.h"
#include "platform/IORegistry.h"
#include "platform/SystemInformation.h"

namespace kmv {

/// A labelled queue whose tasks may run beside each other. Every member may be called from any thread.
class ConcurrentQueue {
 public:
  virtual ~ConcurrentQueue() = default;
  virtual const std::string& label() const = 0;
  /// Runs `task` later; returns at once.
  virtual void async(SerialQueue::Task task) = 0;
};

/// Makes the queues. Every member may be called from any thread.
class QueueFactory {
 public:
  virtual ~QueueFactory() = default;
  virtual std::shared_ptr<SerialQueue> makeSerialQueue(std::string label) = 0;
  virtual std::shared_ptr<ConcurrentQueue> makeConcurrentQueue(std::string label) = 0;
  /// The one main queue; lives as long as the platform.
  virtual MainQueue& mainQueue() = 0;
};

/// Everything the library knows of the machine it runs on: one narrow interface each. The only type a room is
/// given.
class Platform {
 public:
  virtual ~Platform() = default;

  virtual QueueFactory& queues() = 0;
  virtual FileSystem& fileSystem() = 0;
  virtual IORegistry& ioRegistry() = 0;
  virtual SystemInformation& systemInformation() = 0;
  virtual Clock& clock() = 0;
  virtual ExtendedAttributes& extendedAttributes() = 0;
  virtual ChildProcess& childProcess() = 0;
  virtual std::unique_ptr<NetServiceBrowser> makeServiceBrowser() = 0;
  virtual std::unique_ptr<DiskArbitrationSession> makeDiskArbitrationSession() = 0;

  /// The platform in use: the native one unless another was installed before the first call. Lives until the
  /// process ends.
  KMV_EXPORT static Platform& current();

  /// Makes `platform` the one in use. False, and nothing happens, when `current` was called or another was
  /// installed before.
  KMV_EXPORT static bool install(std::unique_ptr<Platform> platform);
};

/// The backend that this build was made for; defined by that backend's folder.
std::unique_ptr<Platform> makeNativePlatform();

}  // namespace kmv
