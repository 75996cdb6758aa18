// SPDX-License-Identifier: MIT
#include "platform/linux/FakeMachine.h"
#include "platform/linux/devices/SysfsFacts.h"
#include "platform/linux/devices/UdevRecord.h"
#include "platform/linux/session/ProcessFiles.h"
#include "support/Testing.h"

namespace kmv {
namespace {

using namespace std::string_literals;

const std::string kProperties =
    "ACTION=change\0DEVPATH=/devices/virtual/block/loop1\0SUBSYSTEM=block\0MAJOR=7\0MINOR=1\0SEQNUM=831\0"s;

TEST(DeviceMessages, AreTheKernelsAboutBlockDevices) {
  const auto event = parseDeviceMessage("change@/devices/virtual/block/loop1\0"s + kProperties);
  ASSERT_TRUE(event);
  EXPECT_EQ(event->action + " " + event->path, "change /devices/virtual/block/loop1");
  EXPECT_EQ(event->number, (DeviceNumber{7, 1}));
  EXPECT_EQ(event->sequence, 831u);
  const std::string numbers = "MAJOR=7\0MINOR=1\0"s;
  for (const std::string& other :
       {""s, "no head\0"s + kProperties, "a@/b\0ACTION=a\0SUBSYSTEM=bdi\0"s + numbers,
        "a@/b\0SUBSYSTEM=block\0"s + numbers, "a@/b\0ACTION=a\0SUBSYSTEM=block\0MAJOR=4294967303\0"s})
    EXPECT_FALSE(parseDeviceMessage(other)) << other;
}

TEST(UdevRecords, KeepPropertiesOnly) {
  const auto properties =
      parseUdevRecord("S:disk/by-id/x\nI:123\nE:ID_FS_TYPE=vfat\nE:broken\nE:=x\nE:A=b=c\nG:systemd");
  EXPECT_EQ(properties.size(), 2u);
  EXPECT_EQ(property(properties, "ID_FS_TYPE"), "vfat");
  EXPECT_EQ(property(properties, "A"), "b=c");
  EXPECT_EQ(property(properties, "absent"), "");
}

TEST(UdevRecords, NameAnyByte) {
  EXPECT_EQ(decodeUdevText("Disk\\x20One\\x2f\\xC3\\xa9"), "Disk One/\xC3\xA9");
  EXPECT_EQ(decodeUdevText("\\x2 \\xg0 \\"), "\\x2 \\xg0 \\");
}

TEST(SysfsFacts, AreAttributesOfTheDeviceOrItsDiskAndAbsentWhenTheyCannotBeRead) {
  using Fact = SysfsFact;
  test::FakeMachine machine;
  machine.device("sda", "8:0", {{"vendor", "Acme "}, {"depth", "31"}, {"ro", "0"}, {"serial", ""}});
  machine.device("sda/sda1", "8:1", {{"ro", "1"}, {"depth", "x"}, {"hot", "1"}, {"cold", "2"}});
  constexpr Fact kTable[] = {{"ro", "ro", Fact::Of::device, Fact::Kind::boolean},
                             {"disk.ro", "ro", Fact::Of::wholeDisk, Fact::Kind::boolean},
                             {"cold", "cold", Fact::Of::device, Fact::Kind::boolean},
                             {"vendor", "vendor", Fact::Of::wholeDisk, Fact::Kind::text},
                             {"serial", "serial", Fact::Of::wholeDisk, Fact::Kind::text},
                             {"depth", "depth", Fact::Of::device, Fact::Kind::integer},
                             {"disk.depth", "depth", Fact::Of::wholeDisk, Fact::Kind::integer},
                             {"hot", "hot", Fact::Of::device, Fact::Kind::flag},
                             {"disk.hot", "hot", Fact::Of::wholeDisk, Fact::Kind::flag}};
  const std::string disk = machine.options().sysRoot + "/devices/sda";
  EXPECT_EQ(readSysfsFacts(kTable, disk + "/sda1", disk), (Dictionary{{"ro", true},
                                                                      {"disk.ro", false},
                                                                      {"vendor", "Acme"},
                                                                      {"disk.depth", 31},
                                                                      {"hot", true},
                                                                      {"disk.hot", false}}));
}

TEST(ProcessFiles, AreReadWhateverNamesTheyHold) {
  const auto mapping = parseMapping("7f00-7f10 r--p 00001000 fd:1a 12    /a b (deleted)");
  ASSERT_TRUE(mapping);
  EXPECT_EQ(mapping->device, (DeviceNumber{0xfd, 0x1a}));
  EXPECT_EQ(mapping->path, "/a b (deleted)");
  EXPECT_EQ(pathInMaps("/a\nb\\"), "/a\\012b\\");
  EXPECT_EQ(mountIdOfDescriptor("pos:\t0\nmnt_id:\t42\nmnt_id:\t43"), 42u);
  EXPECT_EQ(mountIdOfDescriptor("pos:\t0\n mnt_id:\t42"), std::nullopt);
  EXPECT_TRUE(isUninterruptible("42 (a) S (b) D 1"));
  EXPECT_FALSE(isUninterruptible("42 (a) D (b) S 1"));
}

}  // namespace
}  // namespace kmv
