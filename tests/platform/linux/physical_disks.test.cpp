// SPDX-License-Identifier: MIT
// Stacks of block devices as sysfs shows them, written by hand.
#include "platform/linux/FakeMachine.h"
#include "platform/linux/devices/PhysicalDisks.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

class Stacks : public ::testing::Test {
 protected:
  void disk(const std::string& folder, const std::string& number, const std::string& model = "") {
    machine.device(folder, number, {{"size", "2048"}, {"device/model", model}});
  }
  void partition(const std::string& folder, const std::string& number) {
    machine.device(folder, number, {{"size", "1024"}, {"partition", "1"}});
  }
  /// A device that stands on others.
  void stack(const std::string& name, const std::string& number, const std::vector<std::string>& lower) {
    machine.device("virtual/block/" + name, number, {{"size", "1024"}});
    for (const std::string& one : lower) machine.below(name, one);
  }
  std::string below(const std::string& name) {
    std::string names;
    for (const StorageDevice& disk : PhysicalDisks(machine.options(), machine.mountTable()).below(name))
      names += disk.name + " ";
    return names;
  }

  FakeMachine machine;
};

TEST_F(Stacks, APartitionAndAWholeDiskStandOnTheDisk) {
  disk("pci0/nvme/nvme0n1", "259:0", "Quick 990 ");
  partition("pci0/nvme/nvme0n1/nvme0n1p2", "259:2");
  machine.device("pci0/usb1/sda", "8:0", {{"size", "4096"}, {"device/model", "Reader"}});
  partition("pci0/usb1/sda/sda1", "8:1");
  const PhysicalDisks disks(machine.options(), machine.mountTable());
  const StorageDevice quick{"nvme0n1", "Quick 990", 2048 * 512};
  EXPECT_EQ(disks.below("nvme0n1p2"), (std::vector<StorageDevice>{quick}));
  EXPECT_EQ(disks.wholeDiskOf("nvme0n1p2"), quick);
  EXPECT_EQ(below("nvme0n1"), "nvme0n1 ");
  EXPECT_EQ(disks.wholeDiskOf("sda1"), (StorageDevice{"sda", "Reader", 4096 * 512}));
  for (const char* name : {"", "sdz", "../sda", "nvme0n1/nvme0n1p2"}) {
    EXPECT_EQ(below(name), "") << name;
    EXPECT_EQ(disks.wholeDiskOf(name), std::nullopt) << name;
  }
}

TEST_F(Stacks, ALogicalVolumeOnEncryptedRAIDStandsOnEveryMember) {
  for (const char letter : {'a', 'b', 'c'}) {
    const std::string name = std::string("sd") + letter, number = "8:" + std::to_string(16 * (letter - 'a'));
    disk("pci0/" + name, number);
    partition("pci0/" + name + "/" + name + "1", "8:" + std::to_string(16 * (letter - 'a') + 1));
  }
  stack("md0", "9:0", {"sdb1", "sda1"});
  stack("dm-0", "253:0", {"md0"});           // encryption
  stack("dm-1", "253:1", {"dm-0", "sdc1"});  // a volume over two groups' members
  EXPECT_EQ(below("dm-1"), "sda sdb sdc ");
  EXPECT_EQ(below("dm-0"), "sda sdb ");
}

TEST_F(Stacks, AStackThatLeadsBackIntoItselfEnds) {
  disk("pci0/sda", "8:0");
  stack("dm-0", "253:0", {"dm-1"});
  stack("dm-1", "253:1", {"dm-0", "sda"});
  EXPECT_EQ(below("dm-0"), "sda ");
}

TEST_F(Stacks, AnImageFileStandsOnTheDiskOfItsVolumeAndAFileSystemOnAllItsDevices) {
  disk("pci0/sda", "8:0");
  disk("pci0/sdb", "8:16");
  disk("pci0/sdc", "8:32");
  machine.member("6c8e-uuid", "sda");
  machine.member("6c8e-uuid", "sdb");
  machine.device("virtual/block/loop0", "7:0",
                 {{"size", "64"}, {"loop/backing_file", "/pool/images/a b (deleted)"}});
  machine.device("virtual/block/loop1", "7:1", {{"size", "64"}, {"loop/backing_file", "/plain/image"}});
  machine.device("virtual/block/loop2", "7:2", {{"size", "64"}, {"loop/backing_file", "/run/image"}});
  machine.mounts(
      "22 1 0:21 / / rw - tmpfs tmpfs rw\n"
      "30 22 0:40 / /pool rw - btrfs /dev/sda rw\n"
      "31 22 8:32 / /plain rw - ext4 /dev/sdc rw\n");
  EXPECT_EQ(below("sdb"), "sda sdb ") << "what is on it is on both";
  EXPECT_EQ(below("loop0"), "sda sdb ");
  EXPECT_EQ(below("loop1"), "sdc ");
  EXPECT_EQ(below("loop2"), "loop2 ") << "in memory: nothing is below it";
}

}  // namespace
}  // namespace kmv::test
