// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <vector>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/devices/UdevRecord.h"

namespace kmv {

/// Hears of block devices. Thread: one at a time.
class DeviceMonitor {
 public:
  struct News {
    std::vector<DeviceEvent> events;
    bool lost = false;  ///< the kernel dropped events: look at everything
  };

  virtual ~DeviceMonitor() = default;

  /// Polls readable while there is news; -1 when none can be had here.
  virtual int descriptor() const = 0;

  /// Takes all news without waiting.
  virtual News drain() = 0;
};

/// Hears from udevd while that runs, so that its database is written when an event arrives; else from the
/// kernel.
std::unique_ptr<DeviceMonitor> makeDeviceMonitor(const LinuxOptions& options);

#ifdef KMV_WITH_UDEV
/// None when udevd's events cannot be had.
std::unique_ptr<DeviceMonitor> makeUdevMonitor(const LinuxOptions& options);
#endif

/// Makes room for a storm of events; a privileged process may exceed the system's limit.
void setReceiveBuffer(int socket, int bytes);

}  // namespace kmv
