// SPDX-License-Identifier: MIT
#include "platform/linux/session/DeviceFollower.h"

#include <map>
#include <string>
#include <utility>

#include "platform/posix/SystemFiles.h"

namespace kmv {

DeviceFollower::DeviceFollower(const LinuxOptions& options, DiskModel& model)
    : devices_(options), model_(model), monitor_(makeDeviceMonitor(options)) {}

void DeviceFollower::list() try {
  isListUnread_ = false;
  model_.devicesListed(devices_.list(), monitor_->followsRecords());
} catch (const NotReadable&) {
  isListUnread_ = true;
}

void DeviceFollower::follow() {
  const DeviceMonitor::News news = monitor_->drain();
  if (news.lost) {
    list();
  } else {
    takeEvents(news.events);
  }
}

/// Each device is looked at once, however many events tell of it. An event says that something happened, not
/// what is there now; only a removal counts as such, since the kernel announces it just before the device
/// leaves sysfs.
void DeviceFollower::takeEvents(const std::vector<DeviceEvent>& events) {
  std::map<std::string, const DeviceEvent*> last;
  for (const DeviceEvent& event : events) {
    if (event.action == "remove") model_.deviceRemovedAt(event.number, event.sequence);
    last.insert_or_assign(event.path, &event);
  }
  for (const auto& [path, event] : last) {
    if (event->action != "remove") read(event->number);
  }
}

void DeviceFollower::read(DeviceNumber number) try {
  if (auto device = devices_.read(number)) {
    model_.deviceSeen(std::move(*device), monitor_->followsRecords());
  } else {
    model_.deviceRemoved(number);
  }
} catch (const NotReadable&) {
  unread_.insert(number);
}

void DeviceFollower::readAgain() {
  if (isListUnread_) list();
  for (const DeviceNumber number : std::exchange(unread_, {})) read(number);
}

}  // namespace kmv
