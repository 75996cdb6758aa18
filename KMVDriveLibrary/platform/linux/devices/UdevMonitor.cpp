// SPDX-License-Identifier: MIT
#include <libudev.h>
#include <sys/sysmacros.h>

#include <cerrno>

#include "platform/linux/devices/DeviceMonitor.h"

namespace kmv {
namespace {

using Udev = std::unique_ptr<udev, udev* (*)(udev*)>;
using Monitor = std::unique_ptr<udev_monitor, udev_monitor* (*)(udev_monitor*)>;
using Device = std::unique_ptr<udev_device, udev_device* (*)(udev_device*)>;

std::string textOrEmpty(const char* text) {
  return text == nullptr ? std::string() : std::string(text);
}

DeviceEvent eventOf(udev_device* device) {
  DeviceEvent event;
  event.action = textOrEmpty(udev_device_get_action(device));
  event.path = textOrEmpty(udev_device_get_devpath(device));
  const dev_t number = udev_device_get_devnum(device);
  event.number = {major(number), minor(number)};
  event.sequence = udev_device_get_seqnum(device);
  return event;
}

class UdevMonitor final : public DeviceMonitor {
 public:
  UdevMonitor(Udev udev, Monitor monitor) : udev_(std::move(udev)), monitor_(std::move(monitor)) {}

  bool followsRecords() const override { return true; }
  int descriptor() const override { return udev_monitor_get_fd(monitor_.get()); }

  News drain() override {
    News news;
    for (;;) {
      errno = 0;
      const Device device(udev_monitor_receive_device(monitor_.get()), udev_device_unref);
      if (device) {
        news.events.push_back(eventOf(device.get()));
      } else if (errno == ENOBUFS) {
        news.lost = true;
      } else {
        // Nothing left, or a message that libudev did not trust; in the latter case the descriptor stays
        // readable.
        return news;
      }
    }
  }

 private:
  Udev udev_;
  Monitor monitor_;
};

}  // namespace

std::unique_ptr<DeviceMonitor> makeUdevMonitor(const LinuxOptions& options) {
  Udev context(udev_new(), udev_unref);
  if (!context) return nullptr;
  Monitor monitor(udev_monitor_new_from_netlink(context.get(), "udev"), udev_monitor_unref);
  if (!monitor) return nullptr;
  udev_monitor_filter_add_match_subsystem_devtype(monitor.get(), "block", nullptr);
  setReceiveBuffer(udev_monitor_get_fd(monitor.get()), options.netlinkBufferBytes);
  if (udev_monitor_enable_receiving(monitor.get()) < 0) return nullptr;
  return std::make_unique<UdevMonitor>(std::move(context), std::move(monitor));
}

}  // namespace kmv
