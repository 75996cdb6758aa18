// SPDX-License-Identifier: MIT
// What the kernel counts, and which counters belong to which volume.
#include "platform/linux/FakeMachine.h"
#include "platform/linux/devices/BlockStatistics.h"
#include "platform/linux/devices/LinuxDriveStatistics.h"
#include "support/DescriptorLimit.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

TEST(BlockStatistics, AreTheSectorsAndTimesOfKernelsOldAndNew) {
  const BlockStatistics expected{524448, 4341, 2524386, 13689, 6303, 30477, 18633};
  EXPECT_EQ(parseBlockStatistics("   6303   5907 524448  4341 30477 7751 2524386 13689 0 18633 18030\n"),
            expected);
  EXPECT_EQ(parseBlockStatistics("6303 5907 524448 4341 30477 7751 2524386 13689 0 18633 2 3 4 5 6 7 8"),
            expected);
  for (const char* text : {"", "\n", "1 2 3 4 5 6 7", "1 2 3 4 5 6 7 x", "-1 2 3 4 5 6 7 8"})
    EXPECT_EQ(parseBlockStatistics(text), std::nullopt) << text;
}

TEST(BlockStatistics, LinesThatAreNoRecordsArePassedOver) {
  std::string_view text =
      "   8       0 sda 1 0 10 1 2 0 20 3 0 4 5\n"
      "   8       1\n\ngarbage\n"
      " 259 4294967296 x 1 2 3 4 5 6 7 8\n"
      " 259       3 nvme0n1 1 2 3 4 5 6 7 8 9";
  const auto first = takeDiskStatisticsLine(text), second = takeDiskStatisticsLine(text);
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->number, (DeviceNumber{8, 0}));
  EXPECT_EQ(first->statistics, (BlockStatistics{10, 1, 20, 3, 1, 2, 4}));
  EXPECT_EQ(second->number, (DeviceNumber{259, 3}));
  EXPECT_FALSE(takeDiskStatisticsLine(text));
}

class Statistics : public ::testing::Test {
 protected:
  static constexpr char kCounted[] = "1 0 10 2 3 0 20 4 0 0 0";

  void disk(const std::string& folder, const std::string& number, const std::string& counted = kCounted) {
    machine.device(folder, number, {{"size", "2048"}, {"stat", counted}});
  }
  /// "/card /devices/usb/sda/sda1/", one a volume, then "/devices/usb/sda/ 5120 10240", one a driver.
  std::vector<std::string> lines() {
    LinuxDriveStatistics reader(machine.options(), machine.mountTable());
    return lines(reader);
  }
  static std::vector<std::string> lines(LinuxDriveStatistics& reader) {
    DriveStatistics statistics;
    reader.read(0, statistics);
    EXPECT_TRUE(statistics.wereDriversFound);
    std::vector<std::string> all;
    for (const auto& volume : statistics.volumes) all.push_back(volume.url.path() + " " + volume.mediaPath);
    for (const auto& driver : statistics.drivers) {
      all.push_back(driver.path);
      if (!driver.counters) continue;
      all.back() += " " + std::to_string(driver.counters->bytesRead) + " " +
                    std::to_string(driver.counters->bytesWritten);
      EXPECT_EQ(driver.counters->readLatency % 2'000'000, 0u);
    }
    return all;
  }
  using Lines = std::vector<std::string>;

  FakeMachine machine;
};

TEST_F(Statistics, APartitionIsMeasuredByItsDiskAndASpanningFileSystemByAllItsDisks) {
  disk("usb/sda", "8:0");
  machine.device("usb/sda/sda1", "8:1", {{"size", "1024"}, {"partition", "1"}});
  disk("virtual/block/loop1", "7:1", "0 0 1 0 0 0 1 0");
  disk("virtual/block/loop10", "7:10", "cut short");
  disk("pci/sdb", "8:16");
  disk("pci/sdc", "8:32");
  machine.device("pci/sdc/sdc1", "8:33", {{"size", "1024"}, {"partition", "1"}});
  machine.member("aa-bb", "sdb");
  machine.member("aa-bb", "sdc1");
  machine.udev("8:48", "E:UDISKS_IGNORE=1\n");
  disk("pci/sdd", "8:48");
  machine.mounts(
      "1 0 8:1 / /card rw - vfat /dev/sda1 rw\n"
      "2 0 7:1 / /one rw - ext4 /dev/loop1 rw\n"
      "3 0 7:10 / /ten rw - ext4 /dev/loop10 rw\n"
      "4 0 0:40 / /pool rw - btrfs /dev/sdb rw\n"
      "5 0 0:41 / /share rw - nfs4 server:/ rw\n"
      "6 0 8:48 / /system rw - ext4 /dev/sdd rw\n"
      "7 0 8:16 / /boot rw - ext4 /dev/sdb rw\n"
      "8 0 0:22 / /proc rw - proc proc rw\n");
  EXPECT_EQ(lines(),
            (Lines{"/card /devices/usb/sda/sda1/", "/one /devices/virtual/block/loop1/",
                   "/ten /devices/virtual/block/loop10/", "/pool /devices/virtual/kmv/btrfs/aa-bb/",
                   "/share ", "/devices/usb/sda/ 5120 10240", "/devices/virtual/block/loop1/ 512 512",
                   "/devices/virtual/block/loop10/", "/devices/virtual/kmv/btrfs/aa-bb/ 10240 20480"}));
}

TEST_F(Statistics, PhysicalDisksAreCountedOnceWhateverStandsOnThem) {
  disk("pci/sda", "8:0", "1 0 10 2 3 0 20 4 0 7 0");
  for (const char* number : {"0", "1"}) {
    disk(std::string("virtual/block/dm-") + number, std::string("253:") + number);
    machine.below(std::string("dm-") + number, "sda");
  }
  machine.mounts(
      "1 0 253:0 / /a rw - ext4 /dev/dm-0 rw\n2 0 253:1 / /b rw - ext4 /dev/dm-1 rw\n"
      "3 0 8:0 / /c rw - ext4 /dev/sda rw\n");
  LinuxDriveStatistics reader(machine.options(), machine.mountTable());
  DriveStatistics statistics;
  statistics.countsPhysicalDisks = true;
  reader.read(0, statistics);
  EXPECT_EQ(statistics.drivers.size(), 3u);
  ASSERT_EQ(statistics.physicalDisks.size(), 1u);
  const DriverCounters& sda = *statistics.physicalDisks.front().counters;
  EXPECT_EQ(sda.reads, 1u);
  EXPECT_EQ(sda.writes, 3u);
  EXPECT_EQ(sda.busy, 7'000'000u);
}

TEST_F(Statistics, FilesAreKeptOpenForASmallShareOfTheDescriptorsAndBeyondThatTheOneTableIsRead) {
  std::string table = std::string("8 0 sda ") + kCounted + "\n8 16 sdb " + kCounted + "\n";
  for (int line = 0; line < 10; ++line) table += "9 " + std::to_string(line) + " x 0 0 0 0 0 0 0 0\n";
  machine.diskStatistics(table);
  disk("usb/sda", "8:0", "0 0 1 0 0 0 1 0");
  disk("usb/sdb", "8:16", "0 0 1 0 0 0 1 0");
  machine.mounts(
      "1 0 8:0 / /a rw - ext4 /dev/sda rw\n"
      "2 0 8:16 / /b rw - ext4 /dev/sdb rw\n");
  const auto firstCounted = [&](std::size_t descriptors) {
    const DescriptorLimit limit(descriptors);
    return lines()[2];
  };
  EXPECT_EQ(firstCounted(32), "/devices/usb/sda/ 512 512") << "from its file";
  EXPECT_EQ(firstCounted(31), "/devices/usb/sda/ 5120 10240") << "from the table";
}

TEST_F(Statistics, StayAsTheyWereWhileNoDescriptorIsLeftAndWhileNothingIsMounted) {
  disk("usb/sda", "8:0");
  disk("usb/sdb", "8:16");
  machine.mounts("1 0 8:0 / /a rw - ext4 /dev/sda rw\n");
  LinuxDriveStatistics reader(machine.options(), machine.mountTable());
  DriveStatistics statistics;
  {
    const DescriptorLimit none(0);
    reader.read(0, statistics);
    EXPECT_FALSE(statistics.wereDriversFound);
  }
  EXPECT_EQ(lines(reader), (Lines{"/a /devices/usb/sda/", "/devices/usb/sda/ 5120 10240"}));
  reader.read(0, statistics);
  const std::uint64_t before = statistics.generation;
  machine.mounts(
      "1 0 8:0 / /a rw - ext4 /dev/sda rw\n"
      "2 0 8:16 / /b rw - ext4 /dev/sdb rw\n");
  {
    const DescriptorLimit none(0);
    reader.read(0, statistics);
  }
  EXPECT_EQ(statistics.generation, before);
  EXPECT_EQ(statistics.volumes.size(), 1u);
  reader.read(0, statistics);
  EXPECT_NE(statistics.generation, before) << "retried, though nothing was mounted since";
  EXPECT_EQ(statistics.volumes.size(), 2u);
  const std::uint64_t planned = statistics.generation;
  reader.read(0, statistics);
  EXPECT_EQ(statistics.generation, planned) << "readers may cache";
}

TEST_F(Statistics, WhereMostDisksAreMountedTheOneTableIsRead) {
  disk("usb/sda", "8:0", "0 0 1 0 0 0 1 0");
  disk("usb/sdb", "8:16", "0 0 1 0 0 0 1 0");
  machine.diskStatistics(std::string("8 0 sda ") + kCounted + "\n8 16 sdb " + kCounted + "\n8 32 sdc " +
                         kCounted + "\n");
  machine.mounts(
      "1 0 8:0 / /a rw - ext4 /dev/sda rw\n"
      "2 0 8:16 / /b rw - ext4 /dev/sdb rw\n");
  EXPECT_EQ(lines(), (Lines{"/a /devices/usb/sda/", "/b /devices/usb/sdb/", "/devices/usb/sda/ 5120 10240",
                            "/devices/usb/sdb/ 5120 10240"}));
}

}  // namespace
}  // namespace kmv::test
