// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "support/Registry.h"

namespace kmv::testing {

/// The shared registry and monitor on a simulated machine, and what the monitor announces.
class Monitor : public ::testing::Test {
 protected:
  using Seconds = std::chrono::seconds;

  Monitor() {
    registration_ = NotificationCenter::defaultCenter().addObserver(
        kDiskArbiterDriveActivityDidUpdateNotification, [this](const Notification& notification) {
          EXPECT_EQ(notification.object.identity(), static_cast<Object*>(&monitor()));
          std::string line;
          for (const auto& [url, activity] : driveActivities(notification)) {
            line += url.path().substr(url.path().rfind('/') + 1);
            if (const auto read = activity->readDelta()) line += " read " + std::to_string(read->byteDelta());
            if (const auto written = activity->writeDelta())
              line += " wrote " + std::to_string(written->byteDelta());
            line += "; ";
          }
          news_.push_back(line);
          queue = registry.machine.currentQueueLabel();
        });
  }

  static KMVDriveActivityMonitor& monitor() { return KMVDriveActivityMonitor::defaultMonitor(); }
  static URL url(const std::string& path) { return URL::fileURLWithPath(path, true); }

  /// A drive at /Volumes/`name` whose medium stands at `media`.
  DiskId plugIn(const std::string& name, const std::string& media) {
    const DiskId disk = registry.machine.plugIn({.name = name, .mountPoint = "/Volumes/" + name});
    if (!media.empty()) registry.machine.setMediaPath(disk, media);
    return disk;
  }
  void count(const std::string& driver, std::uint64_t read, std::uint64_t written) {
    registry.machine.setBlockStorageDriver(driver, SimulatedCounters{read, written});
  }
  /// Starts everything and lets the silent cycles pass.
  void startMeasuring() {
    registry.start();
    monitor();
    registry.machine.advance(Seconds(5));
    news();
  }
  void nextCycle() { registry.machine.advance(Seconds(monitor().refreshFrequency())); }
  Lines news() { return std::exchange(news_, {}); }

  Registry registry;
  std::string queue;

 private:
  Lines news_;
  NotificationCenter::Registration registration_;
};

}  // namespace kmv::testing
