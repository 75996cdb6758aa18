// SPDX-License-Identifier: MIT
#pragma once

#include <memory>
#include <set>
#include <vector>

#include "platform/linux/LinuxOptions.h"
#include "platform/linux/devices/BlockDevices.h"
#include "platform/linux/devices/DeviceMonitor.h"
#include "platform/linux/session/DiskModel.h"

namespace kmv {

/// Keeps a model up to date with the block devices. What cannot be read, since no descriptor is left, say, stays in the
/// model as it was until it can be. Thread: one at a time.
class DeviceFollower {
 public:
  /// Subscribes; `model` outlives this.
  DeviceFollower(const LinuxOptions& options, DiskModel& model);

  int descriptor() const { return monitor_->descriptor(); }
  /// Reads all devices, as at the start and after lost events.
  void list();
  /// Takes the pending events.
  void follow();
  /// Reads again what could not be read.
  void readAgain();
  bool hasUnread() const { return isListUnread_ || !unread_.empty(); }

 private:
  void takeEvents(const std::vector<DeviceEvent>& events);
  void read(DeviceNumber number);

  const BlockDevices devices_;
  DiskModel& model_;
  const std::unique_ptr<DeviceMonitor> monitor_;
  std::set<DeviceNumber> unread_;  // something happened to them
  bool isListUnread_ = false;
};

}  // namespace kmv
