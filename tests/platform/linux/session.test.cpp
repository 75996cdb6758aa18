// SPDX-License-Identifier: MIT
// The session over a machine of plain folders.
#include "platform/linux/FakeMachine.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/ModelBench.h"
#include "platform/linux/mounts/DutyCycle.h"
#include "platform/linux/session/DeviceFollower.h"
#include "support/DescriptorLimit.h"
#include "support/Guarded.h"
#include "support/Process.h"
#include "support/SessionRecorder.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

std::optional<std::string> deviceAndPoint(const Dictionary& disk) {
  const std::string* name = disk.text(key::kMediaBSDName);
  const URL* path = disk.url(key::kVolumePath);
  return (name == nullptr ? "?" : *name) + " " + (path == nullptr ? "none" : path->path());
}

TEST(LinuxSession, WithoutDescriptorsItSaysSoOnceAndTriesAgain) {
  FakeMachine machine;
  machine.mounts("30 29 0:50 / /f rw - fuse.codexvfs codex0 rw\n");
  LinuxPlatform platform(machine.options());
  SessionRecorder recorder(platform, deviceAndPoint);
  const Guarded<int> complaints;
  OrvaneLog::defaultLog().setSink([complaints](auto, std::string_view line) {
    if (line == "degraded: drives not followed") complaints.with([](int& count) { ++count; });
  });
  std::optional<DescriptorLimit> none(3);
  recorder.start();
  recorder.queue().after(std::chrono::milliseconds(1200), [&] { none.reset(); });  // behind a try
  EXPECT_TRUE(eventually([&] { return !recorder.lines().empty(); }));
  EXPECT_THAT(recorder.lines(), ::testing::ElementsAre("appeared ? /f"));
  EXPECT_EQ(complaints.with([](int& count) { return count; }), 1);
  EXPECT_TRUE(eventually([] { return degradations().empty(); }));
}

TEST(LinuxSession, ReportsEverythingThatIsThere) {
  FakeMachine machine;
  machine.device("pci0/block/sda", "8:0", {{"size", "4096"}, {"diskseq", "1"}});
  machine.device("pci0/block/sda/sda1", "8:1", {{"size", "2048"}, {"partition", "1"}});
  machine.udev("8:0", "E:ID_PART_TABLE_TYPE=gpt\n");
  machine.mounts("29 1 8:1 / / rw - ext4 /dev/sda1 rw\n30 29 0:50 / /f rw - fuse.codexvfs codex0 rw\n");
  LinuxPlatform platform(machine.options());
  SessionRecorder recorder(platform, deviceAndPoint);
  recorder.start();
  EXPECT_TRUE(eventually([&] { return recorder.lines().size() == 3; }));
  // The partition has no udev record, and its node cannot be read: it is described by what is known.
  EXPECT_THAT(recorder.lines(),
              ::testing::UnorderedElementsAre("appeared sda1 /", "appeared sda none", "appeared ? /f"));
}

TEST(LinuxSession, SaysWhatItCannotReadAndTriesAgain) {
  FakeMachine machine;
  LinuxOptions options = machine.options();
  options.mountTableOf = "7";
  machine.device("pci0/block/sda", "8:0", {{"size", "4096"}});
  machine.devicesAreReadable(false);
  LinuxPlatform platform(options);
  SessionRecorder recorder(platform, deviceAndPoint);
  recorder.start();
  const std::vector<std::string> both{"devices unreadable", "mount table unreadable"};
  EXPECT_TRUE(eventually([&] { return degradations() == both; }));
  EXPECT_THAT(recorder.lines(), ::testing::IsEmpty());
  machine.mounts("30 1 0:50 / /f rw - fuse.codexvfs codex0 rw\n", "7");
  machine.devicesAreReadable(true);
  EXPECT_TRUE(eventually([&] { return recorder.lines().size() == 2 && degradations().empty(); }));
}

TEST(DeviceFollower, WithoutDescriptorsEveryDeviceStaysAsItWasAndIsReadAgainLater) {
  FakeMachine machine;
  machine.device("pci0/block/sda", "8:0", {{"size", "4096"}, {"diskseq", "1"}});
  ModelBench bench;
  DeviceFollower devices(machine.options(), bench.model);
  {
    const DescriptorLimit none(0);
    devices.list();
    EXPECT_TRUE(devices.hasUnread());
  }
  devices.readAgain();
  EXPECT_THAT(bench.told(), ::testing::ElementsAre("+ sda none #1"));
  {
    const DescriptorLimit none(0);
    devices.list();
    EXPECT_THROW(BlockDevices(machine.options()).read({8, 0}), NotReadable);
  }
  EXPECT_THAT(bench.told(), ::testing::IsEmpty());
  machine.device("pci0/block/sda", "8:0", {{"size", "0"}});
  devices.readAgain();
  EXPECT_FALSE(devices.hasUnread());
  EXPECT_THAT(bench.told(), ::testing::ElementsAre("- sda none #1"));
}

TEST(LinuxSession, LooksAtALongTableThatChangesAllTheTimeForAFifthOfItsTimeOnly) {
  using std::chrono::milliseconds;
  const DutyCycle::Clock::time_point start{};
  DutyCycle looks;
  EXPECT_LE(looks.next(), start) << "the first waits for nothing";
  for (const auto& [work, end] : {std::pair(1, 5), {0, 0}, {20, 100}, {25, 125}, {400, 500}}) {
    looks.looked(start, start + milliseconds(work));
    EXPECT_EQ(looks.next(), start + milliseconds(end)) << work;
  }
}

}  // namespace
}  // namespace kmv::test
