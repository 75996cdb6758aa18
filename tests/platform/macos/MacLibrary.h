// SPDX-License-Identifier: MIT
#pragma once

#include "platform/macos/MacPlatform.h"
#include "platform/macos/double/FakePlatform.h"
#include "support/Guarded.h"
#include "support/Testing.h"

namespace kmv::macos {

/// The shared registry over the doubles, and what it announces. Its session and queues live as long as the
/// process: what is counted is what came beside them.
class MacLibrary : public ::testing::Test {
 protected:
  using Lines = std::vector<std::string>;

  void SetUp() override {
    ASSERT_TRUE(Platform::install(std::make_unique<MacPlatform>()));
    listen(kDiskArbiterNewDiskDetectedNotification, "new");
    listen(kDiskArbiterRemovedDiskDetectedNotification, "removed");
    listen(kDiskArbiterChangedDiskDetectedNotification, "changed");
  }
  void TearDown() override {
    settle();
    EXPECT_EQ(fake::liveObjects(), objects_);
    EXPECT_EQ(fake::liveQueues(), queues_);
    EXPECT_EQ(fake::openHandles(), 0);
    EXPECT_EQ(fake::openPools(), 0);
  }

  KMVDiskArbiter& arbiter() { return KMVDiskArbiter::sharedInstance(); }
  /// Without anything attached or mounted, so that what is counted belongs to the registry.
  void start() {
    arbiter().startArbiter();
    settle();
    objects_ = fake::liveObjects();
    queues_ = fake::liveQueues();
  }
  void settle() {
    do fake::runUntilIdle();
    while (mainQueue().drain() > 0);
  }
  /// "new /Volumes/A", one per announcement since the last call.
  Lines news() {
    settle();
    return heard_.with([](auto& lines) { return std::exchange(lines, {}); });
  }
  Lines mounted() {
    Lines paths;
    for (const auto& [url, drive] : arbiter().mountedDictionaries()) paths.push_back(url.path());
    return paths;
  }
  static URL folder(const std::string& path) { return URL::fileURLWithPath(path, /*isDirectory=*/true); }

  void listen(std::string_view name, std::string shortName) {
    registrations_.push_back(NotificationCenter::defaultCenter().addObserver(
        name, [heard = heard_, shortName = std::move(shortName)](const Notification& notification) {
          const auto contents = notification.object.dictionary();
          const URL* url = contents == nullptr ? nullptr : contents->url(kDiskURLKey);
          heard.with(
              [&](auto& lines) { lines.push_back(shortName + (url == nullptr ? "" : " " + url->path())); });
        }));
  }

 private:
  Guarded<Lines> heard_;
  std::vector<NotificationCenter::Registration> registrations_;
  long objects_ = 0, queues_ = 0;
};

}  // namespace kmv::macos
