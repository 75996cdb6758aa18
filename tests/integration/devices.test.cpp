// SPDX-License-Identifier: MIT
// Disks that others partition and format while the library looks on.
#include <sys/file.h>

#include "base/Text.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "platform/linux/devices/Probe.h"
#include "platform/posix/FileDescriptor.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

constexpr long long kMegabyte = 1 << 20;

class DeviceStory : public VolumeStory {
 protected:
  LoopDevice newDisk() {
    const std::string image = space().path("disk.img");
    close(open(image.c_str(), O_CREAT | O_WRONLY | O_CLOEXEC, 0600));
    std::filesystem::resize_file(image, 16 * kMegabyte);
    return LoopDevice(image);
  }
  static void format(const std::string& device, const std::string& label) {
    ASSERT_EQ(run({"mkfs.ext4", "-q", "-F", "-L", label, "/dev/" + device}).exitCode, 0);
    const int event = open(("/sys/class/block/" + device + "/uevent").c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(write(event, "change", 6), 6);  // as udevd does when a writer closes the device
    close(event);
  }
  static std::string nameOf(Observer& observer, const std::string& device, const std::string& expected) {
    const std::string* name = nullptr;
    DictionarySnapshot disk;
    observer.waitFor([&] {
      disk = observer.unmounted(device, /*isWaitedFor=*/false);
      name = disk ? disk->text(kDiskVolumeName) : nullptr;
      return name != nullptr && *name == expected;
    });
    return name == nullptr ? "" : *name;
  }
};

TEST_F(DeviceStory, ADiskAndAPartitionThatAreFormattedWhileAttachedAreListedAndMounted) {
  LoopDevice disk = newDisk();
  if (!disk.addPartition(1, kMegabyte, 8 * kMegabyte)) GTEST_SKIP() << "needs partitions on loop devices";
  const std::string partition = disk.name() + "p1";
  // Keeps the disk's own page cache alive, and what it remembers of the partition.
  const FileDescriptor other(open(disk.node().c_str(), O_RDONLY | O_CLOEXEC));
  Observer observer(space().scratch());
  for (const char* label : {"First", "Second"}) {
    format(partition, label);
    EXPECT_EQ(nameOf(observer, partition, label), label);
  }
  mountVolume("/dev/" + partition, space().folder("card"), "ext4");
  observer.expect({"added card"});
  EXPECT_EQ(*observer.drive("card")->text(kDiskVolumeName), "Second");
  EXPECT_EQ(observer.drive("card")->uuid("DAVolumeUUID")->string(),
            upperCase(blkidValue("/dev/" + partition, "UUID")));
}

TEST_F(DeviceStory, AProbeOpensTheWholeDiskAloneAndNotWhileSomebodyHasLockedIt) {
  LoopDevice disk = newDisk();
  if (!disk.addPartition(1, kMegabyte, 8 * kMegabyte)) GTEST_SKIP() << "needs partitions on loop devices";
  format(disk.name() + "p1", "Card");
  LinuxOptions options;
  options.devRoot =
      space().folder("dev");  // without the partition's node, which partitioning tools want to themselves
  std::filesystem::create_symlink(disk.node(), options.devRoot + "/" + disk.name());
  MountEntry mount;
  mount.source = disk.node() + "p1";
  const ProbeRequest request{BlockDevices(options).readBehind(mount).value(), "", 0};
  const FileDescriptor tool(open(disk.node().c_str(), O_RDONLY | O_CLOEXEC));
  ASSERT_EQ(flock(tool.get(), LOCK_EX), 0);
  EXPECT_TRUE(probeDevice(options, request).isDeferred);
  ASSERT_EQ(flock(tool.get(), LOCK_SH), 0);
  ASSERT_TRUE(probeDevice(options, request).facts);
  EXPECT_EQ(probeDevice(options, request).facts->label, "Card");
}

}  // namespace
}  // namespace kmv::integration
