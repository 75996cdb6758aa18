// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/testing/SimulatedPlatform.h>

#include "support/Testing.h"

namespace kmv::simulation {

/// One announcement as an observer saw it.
struct Heard {
  std::string name;   // "new", "removed", "changed"
  std::string path;   // of the drive at that moment
  std::string queue;  // the label of the queue it came on; empty: none
  NotificationObject object;
};

/// A simulated machine with the shared registry on it, and everything that the registry announces.
class Registry {
 public:
  explicit Registry(std::uint64_t seed = 0) : machine(SimulatedPlatform::install(seed)) {
    listen(kDiskArbiterNewDiskDetectedNotification, "new");
    listen(kDiskArbiterRemovedDiskDetectedNotification, "removed");
    listen(kDiskArbiterChangedDiskDetectedNotification, "changed");
  }

  KMVDiskArbiter& arbiter() { return KMVDiskArbiter::sharedInstance(); }

  /// Starts the registry and lets everything that is due happen.
  KMVDiskArbiter& start() {
    arbiter().startArbiter();
    machine.runUntilIdle();
    return arbiter();
  }

  /// "new /Volumes/A", one per announcement since the last call.
  std::vector<std::string> news() {
    std::vector<std::string> lines;
    for (const Heard& one : std::exchange(fresh_, {})) lines.push_back(one.name + " " + one.path);
    return lines;
  }

  /// The live drive mounted at `path`; null when there is none.
  std::shared_ptr<DriveDictionary> drive(const std::string& path) {
    const auto table = arbiter().presentDiskDictionaries();
    return table == nullptr ? nullptr : table->find(URL::fileURLWithPath(path, true));
  }

  SimulatedPlatform& machine;
  std::vector<Heard> heard;

 private:
  void listen(std::string_view name, const std::string& word) {
    const auto hear = [this, word](const Notification& news) {
      const auto contents = news.object.dictionary();
      const URL* url = contents->url(kDiskURLKey);
      heard.push_back({word, url ? url->path() : "", machine.currentQueueLabel(), news.object});
      fresh_.push_back(heard.back());
    };
    registrations_.push_back(NotificationCenter::defaultCenter().addObserver(name, hear));
  }

  std::vector<NotificationCenter::Registration> registrations_;
  std::vector<Heard> fresh_;
};

using Lines = std::vector<std::string>;

/// A case on a simulated machine with the shared registry, not started yet.
class RegistryTest : public ::testing::Test {
 protected:
  static URL folder(const std::string& path) { return URL::fileURLWithPath(path, true); }
  static URL file(const std::string& path) { return URL::fileURLWithPath(path, false); }
  DiskId plugIn(const std::string& name, const std::string& mountPoint = {}) {
    return machine.plugIn({.name = name, .mountPoint = mountPoint});
  }
  /// Lets everything that is due happen; what was announced since the last call.
  Lines news() {
    machine.runUntilIdle();
    return registry.news();
  }

  Registry registry;
  SimulatedPlatform& machine = registry.machine;
  KMVDiskArbiter& arbiter = registry.arbiter();
};

}  // namespace kmv::simulation
