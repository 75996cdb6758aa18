// SPDX-License-Identifier: MIT
#pragma once

#include "support/Registry.h"
#include "support/Testing.h"

namespace kmv::simulation {

/// The shared registry and monitor on a simulated machine, and what the monitor announces.
class Monitor : public RegistryTest {
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
          queue = machine.currentQueueLabel();
        });
  }

  static KMVDriveActivityMonitor& monitor() { return KMVDriveActivityMonitor::defaultMonitor(); }

  /// A drive at /Volumes/`name` whose medium stands at `media`.
  DiskId plugIn(const std::string& name, const std::string& media) {
    const DiskId disk = RegistryTest::plugIn(name, "/Volumes/" + name);
    if (!media.empty()) machine.setMediaPath(disk, media);
    return disk;
  }
  void count(const std::string& driver, std::uint64_t read, std::uint64_t written) {
    machine.setBlockStorageDriver(driver, DriverCounters{read, written});
  }
  /// Starts everything and lets the silent cycles pass.
  void startMeasuring() {
    registry.start();
    monitor();
    machine.advance(Seconds(5));
    news();
  }
  void nextCycle() { machine.advance(Seconds(monitor().refreshFrequency())); }
  Lines news() { return std::exchange(news_, {}); }

  std::string queue;

 private:
  Lines news_;
  NotificationCenter::Registration registration_;
};

}  // namespace kmv::simulation
