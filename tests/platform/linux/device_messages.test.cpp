// SPDX-License-Identifier: MIT
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "platform/linux/devices/UdevRecord.h"

namespace kmv {
namespace {

using namespace std::string_literals;

const std::string kProperties =
    "ACTION=change\0DEVPATH=/devices/virtual/block/loop1\0SUBSYSTEM=block\0MAJOR=7\0MINOR=1\0SEQNUM=831\0"s;

TEST(DeviceMessages, ComeFromTheKernelOrFromUdevd) {
  std::string head(40, '\0');
  std::memcpy(head.data(), "libudev", 7);
  const std::uint32_t offset = 40;
  std::memcpy(head.data() + 16, &offset, sizeof offset);
  for (const std::string& message :
       {"change@/devices/virtual/block/loop1\0"s + kProperties, head + kProperties}) {
    const auto event = parseDeviceMessage(message);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->action, "change");
    EXPECT_EQ(event->path, "/devices/virtual/block/loop1");
    EXPECT_EQ(event->number, (DeviceNumber{7, 1}));
    EXPECT_EQ(event->sequence, 831u);
  }
}

TEST(DeviceMessages, OfOtherKindsAreNone) {
  EXPECT_FALSE(parseDeviceMessage(""));
  EXPECT_FALSE(parseDeviceMessage(kProperties)) << "no head";
  EXPECT_FALSE(parseDeviceMessage("remove@/devices/virtual/bdi/0:40\0ACTION=remove\0SUBSYSTEM=bdi\0"s));
  EXPECT_FALSE(parseDeviceMessage("libudev\0 short"s));
  EXPECT_FALSE(parseDeviceMessage("libudev\0........\xff\xff\xff\xff........"s))
      << "points outside the message";
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

}  // namespace
}  // namespace kmv
