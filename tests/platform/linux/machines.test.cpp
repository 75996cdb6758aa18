// SPDX-License-Identifier: MIT
// Whole machines as plain folders: what is a disk, how it is described, and which mounts are drives.
#include "platform/linux/FakeMachine.h"
#include "platform/linux/devices/BlockDevices.h"
#include "platform/linux/devices/Description.h"
#include "platform/linux/devices/Probe.h"
#include "platform/linux/mounts/LinuxVolumes.h"
#include "support/Testing.h"

namespace kmv {
namespace {

using test::FakeMachine;

std::optional<BlockDevice> deviceNamed(const FakeMachine& machine, const std::string& name) {
  for (BlockDevice& device : BlockDevices(machine.options()).list()) {
    if (device.name == name) return device;
  }
  return std::nullopt;
}

Dictionary unmounted(const FakeMachine& machine, const std::string& name) {
  const auto device = deviceNamed(machine, name);
  return device ? describeDisk(&*device, nullptr, 1) : Dictionary();
}

class UsbStick : public ::testing::Test {
 protected:
  UsbStick() {
    machine_.device("pci0/usb1/1-2/host6/6:0:0:0/block/sdb", "8:16",
                    {{"size", "31266816"},
                     {"removable", "1"},
                     {"diskseq", "9"},
                     {"device/model", "fallback"},
                     {"device/vendor", "SanDisk "},
                     {"device/rev", "1.00"},
                     {"queue/rotational", "0"},
                     {"queue/logical_block_size", "512"}});
    machine_.device("pci0/usb1/1-2/host6/6:0:0:0/block/sdb/sdb1", "8:17",
                    {{"size", "31264768"}, {"partition", "1"}, {"ro", "1"}});
    machine_.bus("pci0/usb1", "usb");
    machine_.udev(
        "8:16",
        "E:ID_MODEL=Cruzer_Blade\nE:ID_MODEL_ENC=Cruzer\\x20Blade\\x20\\x20\nE:ID_PART_TABLE_TYPE=dos\n"
        "E:ID_SERIAL_SHORT=4C53\n");
    machine_.udev(
        "8:17",
        "E:ID_FS_TYPE=vfat\nE:ID_FS_USAGE=filesystem\nE:ID_FS_VERSION=FAT32\nE:ID_FS_UUID=6A81-CDD2\n"
        "E:ID_FS_LABEL=KIM_S_CARD\nE:ID_FS_LABEL_ENC=KIM\\x27S\\x20CARD\nE:ID_PART_ENTRY_TYPE=0xc\n"
        "E:ID_PART_ENTRY_NAME=EOS\\x20R5\nE:ID_PART_ENTRY_UUID=00b5d6cc-01\n");
  }
  FakeMachine machine_;
};

TEST_F(UsbStick, IsDescribedByItsUdevRecord) {
  const Dictionary card = unmounted(machine_, "sdb1");
  EXPECT_EQ(card,
            (Dictionary{{key::kAppearanceTime, 1.0},
                        {key::kDeviceInternal, false},
                        {key::kDeviceModel, "Cruzer Blade"},
                        {key::kDeviceProtocol, "USB"},
                        {key::kDeviceRevision, "1.00"},
                        {key::kDeviceRotational, false},
                        {key::kDeviceSerial, "4C53"},
                        {key::kDeviceVendor, "SanDisk"},
                        {key::kMediaBlockSize, 512},
                        {key::kMediaName, "EOS R5"},
                        {key::kMediaWritable, false},
                        {key::kVolumeIdentifier, "6A81-CDD2"},
                        {key::kMediaBSDName, "sdb1"},
                        {key::kMediaBSDUnit, 9},
                        {key::kMediaContent, "0xc"},
                        {key::kMediaEjectable, true},
                        {key::kMediaRemovable, true},
                        {key::kMediaSize, std::int64_t{31264768} * 512},
                        {key::kMediaWhole, false},
                        {key::kVolumeKind, "vfat"},
                        {key::kVolumeMountable, true},
                        {key::kVolumeName, "KIM'S CARD"},
                        {key::kVolumeNetwork, false},
                        {key::kVolumeType, "MS-DOS (FAT32)"},
                        {key::kVolumeUUID, *UUID::fromString("AB1C05C3-85FE-5166-AAAE-D3244531910A")}}));
}

TEST_F(UsbStick, AsAWholeIsNoVolume) {
  const Dictionary stick = unmounted(machine_, "sdb");
  EXPECT_EQ(stick.find(key::kMediaContent)->description(), "FDisk_partition_scheme");
  EXPECT_FALSE(stick.contains(key::kVolumeMountable));
  EXPECT_FALSE(stick.contains(key::kVolumeKind));
}

TEST_F(UsbStick, IsNoDiskOnceItsMediumIsGone) {
  machine_.device("pci0/usb1/1-2/host6/6:0:0:0/block/sdc", "8:32", {{"size", "0"}});
  machine_.device("pci0/usb1/1-2/host6/6:0:0:0/block/sdc/sdc1", "8:33",
                  {{"size", "100"}, {"partition", "1"}});
  EXPECT_FALSE(deviceNamed(machine_, "sdc"));
  EXPECT_FALSE(deviceNamed(machine_, "sdc1")) << "left behind by the disk";
}

TEST(Machines, NvmeDiskIsInternalAndPaddedNamesAreTrimmed) {
  FakeMachine machine;
  machine.device("pci0/nvme/nvme0/nvme0n1", "259:0",
                 {{"size", "1000"}, {"removable", "0"}, {"device/model", "Fast NVMe 1TB            "}});
  machine.device("pci0/nvme/nvme0/nvme0n1/nvme0n1p1", "259:1", {{"size", "500"}, {"partition", "1"}});
  machine.bus("pci0/nvme", "pci");
  machine.udev(
      "259:1",
      "E:ID_FS_TYPE=xfs\nE:ID_FS_USAGE=filesystem\nE:ID_FS_UUID=00000000-0000-0000-0000-000000000000\n"
      "E:ID_PART_ENTRY_TYPE=0fc63daf-8483-4772-8e79-3d69d8477de4\n");
  const Dictionary disk = unmounted(machine, "nvme0n1p1");
  EXPECT_EQ(disk.boolValue(key::kDeviceInternal), true);
  EXPECT_EQ(*disk.text(key::kDeviceModel), "Fast NVMe 1TB");
  EXPECT_EQ(*disk.text(key::kMediaContent), "0FC63DAF-8483-4772-8E79-3D69D8477DE4");
  EXPECT_EQ(disk.find(key::kMediaBSDUnit)->integerValue(), std::int64_t{259} << 20) << "of the whole disk";
  EXPECT_FALSE(disk.contains(key::kVolumeUUID)) << "zeros identify nothing";
}

TEST(Machines, SayHowTheyAreConnectedAndWhetherByACable) {
  FakeMachine machine;
  const auto add = [&](const std::string& folder, const char* number, FakeMachine::Attributes attributes) {
    machine.device(folder, number, attributes);
  };
  add("pci0/cable/nvme/nvme1/nvme1n1", "259:9", {{"size", "1"}, {"diskseq", "1"}, {"device/serial", "S1"}});
  machine.bus("pci0/cable", "pci");
  machine.attribute("pci0/cable/removable", "removable");
  machine.bus("pci0/cable/nvme/nvme1", "nvme");
  add("pci0/ata2/host1/target1:0:0/1:0:0:0/block/sda", "8:0",
      {{"size", "1"}, {"diskseq", "2"}, {"queue/rotational", "1"}, {"device/vendor", "0x1af4"}});
  add("pci0/mmc0/mmc0:1/block/mmcblk0", "179:0", {{"size", "1"}, {"device/type", "SD"}});
  machine.bus("pci0/mmc0/mmc0:1", "mmc");
  add("virtual/block/md0", "9:0", {{"size", "1"}});
  const auto connection = [&](const char* name) {
    const Dictionary disk = unmounted(machine, name);
    return *disk.text(key::kDeviceProtocol) + (*disk.boolValue(key::kDeviceInternal) ? "" : ", external");
  };
  EXPECT_EQ(connection("nvme1n1"), "NVMe, external");
  EXPECT_EQ(connection("sda"), "SATA");
  EXPECT_EQ(connection("mmcblk0"), "SD, external");
  EXPECT_EQ(connection("md0"), "Virtual");
  EXPECT_FALSE(unmounted(machine, "sda").contains(key::kDeviceVendor)) << "a number is no name";
  const BlockDevices devices(machine.options());
  const auto serial = [&] { return *devices.read({259, 9})->hardwareFacts.text(key::kDeviceSerial); };
  EXPECT_EQ(serial(), "S1");
  add("pci0/cable/nvme/nvme1/nvme1n1", "259:9", {{"diskseq", "3"}, {"device/serial", "S2"}});
  EXPECT_EQ(serial(), "S2") << "another disk";
}

TEST(Machines, LoopAndMappedDevices) {
  FakeMachine machine;
  machine.device("virtual/block/loop3", "7:3", {{"size", "131072"}, {"removable", "0"}, {"diskseq", "20"}});
  machine.device("virtual/block/dm-0", "253:0", {{"size", "4096"}, {"dm/name", "vg-home"}});
  machine.udev("7:3", "E:ID_FS_TYPE=ext4\nE:ID_FS_USAGE=filesystem\nE:ID_FS_LABEL_ENC=Disk\\x20One\n");
  const Dictionary loop = unmounted(machine, "loop3");
  EXPECT_EQ(loop.boolValue(key::kMediaEjectable), true);
  EXPECT_EQ(loop.boolValue(key::kDeviceInternal), false);
  EXPECT_FALSE(loop.contains(key::kDeviceModel));

  const BlockDevices devices(machine.options());
  MountEntry mount;
  mount.source = "/dev/mapper/vg-home";
  ASSERT_TRUE(devices.readBehind(mount));
  EXPECT_EQ(devices.readBehind(mount)->name, "dm-0");
  mount.source = "/dev/loop3:/dev/dm-0";
  EXPECT_EQ(devices.readBehind(mount)->name, "loop3");
}

TEST(Machines, ANumberThatPassedToAnotherDeviceLeadsNowhereAndAMountedPoolNeedsNoNode) {
  FakeMachine machine;
  machine.device("pci0/block/sda", "8:0", {{"size", "100"}});
  machine.device("pci0/block/sda", "8:16", {{"size", "100"}});
  const BlockDevices devices(machine.options());
  EXPECT_FALSE(devices.read({8, 0})) << "the link is stale";
  machine.member("aa-bb", "sda", "Pool");
  const auto facts = probeDevice(machine.options(), {devices.read({8, 16}).value(), "btrfs"}).facts;
  ASSERT_TRUE(facts);
  EXPECT_EQ(facts->label + " " + facts->id, "Pool aa-bb");
}

TEST(Machines, SomeDevicesAreDisksOnlyWhileMounted) {
  FakeMachine machine;
  machine.device("virtual/block/zram0", "252:0", {{"size", "100"}});
  machine.device("pci0/block/sr0", "11:0",
                 {{"size", "2097151"}, {"removable", "1"}, {"events", "media_change eject_request"}});
  machine.device("pci0/block/sda", "8:0", {{"size", "100"}, {"hidden", "1"}});
  machine.device("pci0/block/cciss!c0d0", "104:0", {{"size", "100"}});
  machine.device("pci0/block/sdd", "8:48", {{"size", "100"}});
  machine.udev("8:48", "E:UDISKS_IGNORE=1\n");
  for (const std::string name : {"zram0", "sr0", "sda", "sdd"}) {
    EXPECT_FALSE(deviceNamed(machine, name)->reportUnmounted) << name;
  }
  EXPECT_EQ(deviceNamed(machine, "cciss!c0d0")->node, "cciss/c0d0");
  machine.udev("11:0", "E:ID_CDROM_MEDIA=1\n");
  EXPECT_TRUE(deviceNamed(machine, "sr0")->reportUnmounted);
}

TEST(Machines, TheBusTheReaderAndTheDriveSayWhatIsInternalAndWhatCanBeEjected) {
  FakeMachine machine;
  machine.device("pci0/fw0/block/sdf", "8:80", {{"size", "100"}});
  machine.bus("pci0/fw0", "ieee1394");
  machine.device("pci0/mmc0/block/mmcblk0", "179:0",
                 {{"size", "100"}, {"device/type", "SD"}, {"device/name", "SU04G"}});
  machine.device("pci0/mmc1/block/mmcblk1", "179:8", {{"size", "100"}, {"device/type", "MMC"}});
  machine.device("pci0/block/sdg", "8:96",
                 {{"size", "100"}, {"removable", "0"}, {"events", "eject_request"}});
  machine.udev("8:96", "E:SYSTEMD_READY=0\n");
  const auto facts = [&](const std::string& name) {
    const auto device = deviceNamed(machine, name);
    return std::string(device->internal ? "internal" : "external") +
           (device->ejectable ? " ejects " : " stays ") + device->model;
  };
  EXPECT_EQ(facts("sdf"), "external stays ");
  EXPECT_EQ(facts("mmcblk0"), "external stays SU04G");
  EXPECT_EQ(facts("mmcblk1"), "internal stays ");
  EXPECT_EQ(facts("sdg"), "internal ejects ");
  EXPECT_FALSE(deviceNamed(machine, "sdg")->reportUnmounted) << "not ready";
}

TEST(Machines, AMountWithoutDeviceIsNamedAfterItsPoint) {
  MountEntry mount;
  mount.point = "/net/Set 4";
  mount.kind = "nfs4";
  const Dictionary share = describeDisk(nullptr, &mount, 2);
  EXPECT_EQ(*share.text(key::kVolumeName), "Set 4");
  EXPECT_EQ(share.boolValue(key::kVolumeNetwork), true);
  EXPECT_EQ(share.boolValue(key::kVolumeMountable), true);
}

/// Which mounts of a table are drives. Each verdict: rule or "-", then the point.
const struct {
  const char* volumes;
  const char* files;
  const char* table;
  std::vector<std::string> verdicts;
} kTables[] = {
    {"of a desktop",
     "",
     "29 1 259:2 / / rw shared:1 - ext4 /dev/nvme0n1p2 rw\n"
     "22 29 0:21 / /proc rw - proc proc rw\n"
     "40 22 0:36 / /proc/sys/fs/binfmt_misc rw - autofs systemd-1 rw\n"
     "50 29 7:4 / /snap/core22/1234 ro - squashfs /dev/loop4 ro\n"
     "51 29 259:1 / /boot/efi rw - vfat /dev/nvme0n1p1 rw\n"
     "60 29 0:60 / /run/user/1000/doc rw - fuse.portal portal rw\n"
     "61 29 0:61 / /run/user/1000/gvfs rw - fuse.gvfsd-fuse gvfsd-fuse rw\n"
     "70 29 8:17 / /media/kim/KIM\\047S\\040CARD rw - vfat /dev/sdb1 rw\n"
     "71 29 0:71 / /net/set rw - nfs4 server:/set rw\n"
     "72 29 0:72 / /media/hde rw - fuse.codexvfs codex0 rw\n"
     "73 29 259:2 /home/kim /srv/kim rw - ext4 /dev/nvme0n1p2 rw\n"
     "74 29 8:17 / /srv/card rw - vfat /dev/sdb1 rw\n"
     "75 29 8:33 / /snap/stick ro - squashfs /dev/sdc1 ro\n"
     "76 29 0:76 / /tank rw - zfs tank rw\n"
     "77 29 0:77 / /media/plain rw - fuse plain rw\n"
     "78 29 8:49 / /media/ntfs rw - fuseblk /dev/sdd1 rw\n",
     {"- /", "- /boot/efi", "- /media/kim/KIM'S CARD", "- /net/set", "- /media/hde", "- /snap/stick",
      "- /tank", "- /media/plain", "- /media/ntfs", "pseudo /proc", "pseudo /proc/sys/fs/binfmt_misc",
      "snap /snap/core22/1234", "helper /run/user/1000/doc", "helper /run/user/1000/gvfs", "folder /srv/kim",
      "bind /srv/card"}},
    {"of a container are folders, but not files",
     "/etc/hosts",
     "500 400 0:90 / / rw - overlay overlay rw\n"
     "501 500 8:2 /var/lib/containers/1/hosts /etc/hosts rw - ext4 /dev/sda2 rw\n"
     "502 500 8:2 /srv/footage /footage rw - ext4 /dev/sda2 rw\n"
     "503 500 8:2 /srv/footage/day1 /today rw - ext4 /dev/sda2 rw\n",
     {"- /footage", "pseudo /", "file /etc/hosts", "folder /today"}},
    {"of btrfs are its subvolumes",
     "",
     "29 1 0:39 /@ / rw - btrfs /dev/sda2 rw,subvolid=256,subvol=/@\n"
     "30 29 0:39 /@ho\\040me,x /home rw - btrfs /dev/sda2 rw,subvolid=257,subvol=/@ho\\040me\\054x\n"
     "31 29 0:39 /@/srv /export rw - btrfs /dev/sda2 rw,subvolid=256,subvol=/@\n"
     "32 29 0:39 / /pool rw - btrfs /dev/sda2 rw,subvolid=5,subvol=/\n",
     {"- /", "- /home", "- /pool", "folder /export"}},
    {"behind a server are not asked whether they are folders",
     "/f/x /p/x /n/x /s/x",
     "29 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
     "30 29 0:50 / /f rw - fuse.codexvfs codex0 rw\n"
     "31 30 8:2 /sub /f/x rw - ext4 /dev/sda2 rw\n"
     "32 29 0:51 / /p rw - fuse plain rw\n"
     "33 32 8:3 /sub /p/x rw - ext4 /dev/sda3 rw\n"
     "34 29 8:17 / /n rw - fuseblk /dev/sdb1 rw\n"
     "35 34 8:4 /sub /n/x rw - ext4 /dev/sda4 rw\n"
     "36 29 8:18 / /s rw - fuseblk.other /dev/sdb2 rw\n"
     "37 36 8:5 /sub /s/x rw - ext4 /dev/sda5 rw\n",
     {"- /", "- /f", "- /f/x", "- /p", "- /p/x", "- /n", "- /n/x", "- /s", "- /s/x"}},
    {"are reachable",
     "",
     "29 1 8:1 / / rw - ext4 /dev/sda1 rw\n"
     "30 29 8:2 / /a rw - ext4 /dev/sda2 rw\n"
     "31 30 8:3 / /a/b/c rw - ext4 /dev/sda3 rw\n"
     "32 31 8:4 / /a/b/c/d rw - ext4 /dev/sda4 rw\n"
     "33 30 0:50 / /a/b rw - tmpfs t rw\n"
     "34 33 8:5 / /a/b/e rw - ext4 /dev/sda5 rw\n"
     "35 29 8:6 / /f rw - ext4 /dev/sda6 rw\n"
     "36 35 8:7 / /f rw - ext4 /dev/sda7 rw\n"
     "37 29 8:6 / /g rw - ext4 /dev/sda6 rw\n",
     {"- /", "- /a", "- /a/b/e", "- /f", "- /g", "shadowed /a/b/c", "shadowed /a/b/c/d", "pseudo /a/b",
      "covered /f"}}};

TEST(Volumes, AreNotNoneBecauseTheTableCannotBeReadAndThatIsSaid) {
  std::vector<std::string> log;
  OrvaneLog::defaultLog().setSink([&](OrvaneLog::Level level, std::string_view line) {
    log.push_back((level == OrvaneLog::Level::error ? "error " : "") + std::string(line));
  });
  FakeMachine machine;
  LinuxOptions nowhere = machine.options();
  nowhere.procRoot += "/nowhere";
  LinuxVolumes blind(nowhere, std::make_shared<MountTable>(nowhere));
  LinuxVolumes seeing(machine.options(), machine.mountTable());
  for (int times = 0; times < 2; ++times) EXPECT_TRUE(blind.mountedVolumeURLs().empty());
  EXPECT_EQ(degradations(), std::vector<std::string>{"mount table unreadable"});
  seeing.hiddenMounts();
  EXPECT_EQ(degradations(), std::vector<std::string>());
  EXPECT_EQ(log, (std::vector<std::string>{"error degraded: mount table unreadable",
                                           "no longer degraded: mount table unreadable"}));
  OrvaneLog::defaultLog().setSink(nullptr);
}

TEST(Volumes, AreWhatTheTableAndTheRulesSay) {
  for (const auto& [volumes, files, table, verdicts] : kTables) {
    FakeMachine machine;
    std::istringstream all(files);
    for (std::string file; all >> file;) machine.fileAt(file);
    machine.mounts(table);
    LinuxVolumes linuxVolumes(machine.options(), machine.mountTable());
    std::vector<std::string> lines;
    for (const URL& url : linuxVolumes.mountedVolumeURLs()) lines.push_back("- " + url.path());
    for (const HiddenMount& mount : linuxVolumes.hiddenMounts())
      lines.push_back(mount.rule + " " + mount.path);
    EXPECT_EQ(lines, verdicts) << volumes;
  }
}

}  // namespace
}  // namespace kmv
