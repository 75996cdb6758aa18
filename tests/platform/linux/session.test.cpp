// SPDX-License-Identifier: MIT
// The session over a machine of plain folders, and the whole of it over the machine that runs the test.
#include "platform/linux/session/LinuxSession.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <set>
#include <string>

#include "platform/linux/FakeMachine.h"
#include "platform/linux/LinuxPlatform.h"

namespace kmv {
namespace {

using test::FakeMachine;

class Recorder {
 public:
  DiskCallbacks callbacks() {
    DiskCallbacks callbacks;
    callbacks.appeared = [](Disk* disk, void* context) { static_cast<Recorder*>(context)->hear(*disk); };
    return callbacks;
  }
  bool waitFor(const std::string& disk) {
    return waitUntil([&](const std::string& heard) { return heard == disk; });
  }
  bool waitForPath(const std::string& path) {
    return waitUntil([&](const std::string& heard) { return heard.substr(heard.find(' ') + 1) == path; });
  }
  std::multiset<std::string> disks() {
    const std::lock_guard lock(mutex_);
    return disks_;
  }

 private:
  bool waitUntil(const std::function<bool(const std::string&)>& fits) {
    std::unique_lock lock(mutex_);
    return heard_.wait_for(lock, std::chrono::seconds(20),
                           [&] { return std::any_of(disks_.begin(), disks_.end(), fits); });
  }
  void hear(const Disk& disk) {
    const Dictionary description = *disk.copyDescription();
    const std::string* name = description.text(key::kMediaBSDName);
    const URL* path = description.url(key::kVolumePath);
    const std::lock_guard lock(mutex_);
    disks_.insert((name == nullptr ? "?" : *name) + " " + (path == nullptr ? "none" : path->path()));
    heard_.notify_all();
  }
  std::mutex mutex_;
  std::condition_variable heard_;
  std::multiset<std::string> disks_;
};

TEST(LinuxSession, ReportsEverythingThatIsThere) {
  FakeMachine machine;
  machine.device("pci0/block/sda", "8:0", {{"size", "4096"}, {"diskseq", "1"}});
  machine.device("pci0/block/sda/sda1", "8:1", {{"size", "2048"}, {"partition", "1"}});
  machine.udev("8:0", "E:ID_PART_TABLE_TYPE=gpt\n");
  machine.mounts("29 1 8:1 / / rw - ext4 /dev/sda1 rw\n30 29 0:50 / /f rw - fuse.codexvfs codex0 rw\n");
  LinuxPlatform platform(machine.options());
  const auto queue = platform.queues().makeSerialQueue("recorder");
  Recorder recorder;
  const auto session = platform.makeDiskArbitrationSession();
  session->setQueue(queue);
  session->registerCallbacks(recorder.callbacks(), &recorder);
  // The partition has no udev record, and its node cannot be read: it is described by what is known.
  EXPECT_TRUE(recorder.waitFor("sda1 /"));
  EXPECT_TRUE(recorder.waitFor("sda none"));
  EXPECT_TRUE(recorder.waitFor("? /f"));
  EXPECT_EQ(recorder.disks().size(), 3u);
}

TEST(LinuxSession, EndsWithoutWaitingForItsQueue) {
  FakeMachine machine;
  machine.mounts("30 29 0:50 / /f rw - fuse.codexvfs codex0 rw\n");
  LinuxPlatform platform(machine.options());
  const auto queue = platform.queues().makeSerialQueue("recorder");
  Recorder recorder;
  queue->sync([&] {
    auto session = platform.makeDiskArbitrationSession();
    session->setQueue(queue);
    session->registerCallbacks(recorder.callbacks(), &recorder);
    session.reset();
  });
  queue->sync([] {});
  EXPECT_TRUE(recorder.disks().empty()) << "what was still queued is dropped";
}

TEST(LinuxSession, AgreesWithTheMountTableOfThisMachine) {
  LinuxPlatform platform;
  const auto volumes = platform.volumes().mountedVolumeURLs();
  if (volumes.empty()) GTEST_SKIP() << "no drive is mounted here";
  const auto queue = platform.queues().makeSerialQueue("recorder");
  Recorder recorder;
  const auto session = platform.makeDiskArbitrationSession();
  session->setQueue(queue);
  session->registerCallbacks(recorder.callbacks(), &recorder);
  for (const URL& url : volumes) EXPECT_TRUE(recorder.waitForPath(url.path())) << url.absoluteString();
}

}  // namespace
}  // namespace kmv
