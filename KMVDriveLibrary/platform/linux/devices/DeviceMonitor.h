// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/devices/UdevRecord.h"

namespace kmv {

/// Receives the events of block devices. Thread: one at a time.
class DeviceMonitor {
 public:
  struct News {
    std::vector<DeviceEvent> events;
    bool lost = false;  ///< the kernel dropped events (buffer overrun): enumerate everything again
  };

  virtual ~DeviceMonitor() = default;

  /// True when udev's record of a device is written before its event arrives here: no look at the device itself is needed.
  virtual bool followsRecords() const = 0;

  /// Polls readable while events are pending; -1 where none can be received.
  virtual int descriptor() const = 0;

  /// Takes all pending events without blocking.
  virtual News drain() = 0;
};

/// Listens to udevd while that runs, so that its database is written before an event arrives; else to the
/// kernel.
std::unique_ptr<DeviceMonitor> makeDeviceMonitor(const LinuxOptions& options);

#ifdef KMV_WITH_UDEV
/// None when udevd's events cannot be received.
std::unique_ptr<DeviceMonitor> makeUdevMonitor(const LinuxOptions& options);
#endif

/// Enlarges the receive buffer for a storm of events; a privileged process may exceed the system's limit.
void setReceiveBuffer(int socket, int bytes);

}  // namespace kmv
