// SPDX-License-Identifier: MIT
// What commands answer before, and instead of, the kernel's help. Their work on real volumes is told
// elsewhere.
#include "platform/linux/session/Commands.h"

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/linux/session/Holders.h"

namespace kmv {
namespace {

namespace fs = std::filesystem;

/// A /proc of plain files.
class CommandsTest : public ::testing::Test {
 protected:
  CommandsTest() {
    std::string name = (fs::temp_directory_path() / "kmv-commands-XXXXXX").string();
    root_ = ::mkdtemp(name.data());
    options_.procRoot = root_ / "proc";
    options_.viewRoot = root_ / "view";  // where nothing is: no command may touch what is really mounted
    link("self/ns/mnt", "mnt:[1]");
  }
  ~CommandsTest() override { fs::remove_all(root_); }

  void write(const std::string& name, const std::string& text) {
    const fs::path file = root_ / "proc" / name;
    fs::create_directories(file.parent_path());
    std::ofstream(file) << text;
  }
  void link(const std::string& name, const std::string& target) {
    const fs::path file = root_ / "proc" / name;
    fs::create_directories(file.parent_path());
    fs::create_symlink(target, file);
  }
  /// A path as other processes see it.
  std::string seen(const std::string& path) const { return options_.viewRoot + path; }

  static std::int64_t statusOf(const Dissent& dissent) {
    return dissent ? dissent->find(key::kDissenterStatus)->integerValue() : dissent::kDone;
  }
  std::int64_t unmount() {
    return statusOf(Commands(options_, std::make_shared<MountTable>(options_)).unmount(card_));
  }
  std::int64_t rename(const std::string& kind, const std::string& name) {
    card_.kind = kind;
    write("self/mountinfo", "40 1 7:26 / /media/card rw - " + kind + " /dev/loop9 rw\n");
    return statusOf(Commands(options_, std::make_shared<MountTable>(options_)).rename(card_, name));
  }

  fs::path root_;
  LinuxOptions options_;
  TargetVolume card_{"/media/card", "ext4", "/dev/loop9", 40, {7, 26}};
};

TEST_F(CommandsTest, RefusalsSpeakTheOriginalPlatformsNumbers) {
  EXPECT_EQ(dissent::ofError(EBUSY), dissent::kBusy);
  EXPECT_EQ(dissent::ofError(EPERM), dissent::kNotPrivileged);
  EXPECT_EQ(dissent::ofError(EACCES), dissent::kNotPermitted);
  EXPECT_EQ(dissent::ofError(EROFS), dissent::kNotWritable);
  EXPECT_EQ(dissent::ofError(EIO), dissent::kError);
  const std::string service = "org.freedesktop.UDisks2.Error.";
  EXPECT_EQ(dissent::ofErrorName(service + "DeviceBusy"), dissent::kBusy);
  EXPECT_EQ(dissent::ofErrorName(service + "NotAuthorizedCanObtain"), dissent::kNotPrivileged);
  EXPECT_EQ(dissent::ofErrorName(service + "MountedByOtherUser"), dissent::kNotPermitted);
  EXPECT_EQ(dissent::ofErrorName(service + "NotSupported"), dissent::kUnsupported);
  EXPECT_EQ(dissent::ofErrorName("org.example.Error.DeviceBusy"), dissent::kError);
  EXPECT_EQ(dissent::ofErrorName(""), dissent::kError);
}

TEST_F(CommandsTest, AVolumeThatLostItsPlaceIsLeftAlone) {
  const std::string own = "40 1 7:26 / /media/card rw - ext4 /dev/loop9 rw\n";
  EXPECT_EQ(unmount(), dissent::kNoResources) << "no mount table at all: nothing is known";
  write("self/mountinfo", "41 1 7:26 / /media/card rw - ext4 /dev/loop9 rw\n");
  EXPECT_EQ(unmount(), dissent::kNotMounted) << "another mount took the place";
  EXPECT_EQ(statusOf(Commands(options_, std::make_shared<MountTable>(options_)).rename(card_, "New")),
            dissent::kNotMounted);
  write("self/mountinfo", "40 1 7:27 / /media/card rw - ext4 /dev/loop10 rw\n");
  EXPECT_EQ(unmount(), dissent::kNotMounted) << "another volume has its id";
  write("self/mountinfo",
        own + "42 1 0:50 / /media rw - tmpfs t rw\n43 42 7:27 / /media/card rw - ext4 /dev/loop10 rw\n");
  EXPECT_EQ(unmount(), dissent::kBusy) << "the path leads to another volume";
  write("self/mountinfo", "40 1 7:26 / /media/card2 rw - ext4 /dev/loop9 rw\n");
  EXPECT_EQ(unmount(), dissent::kNotMounted) << "it moved";
  write("self/mountinfo", own + "41 40 0:50 / /media/card rw - tmpfs t rw\n");
  EXPECT_EQ(unmount(), dissent::kBusy) << "the path leads to what covers it";
}

TEST_F(CommandsTest, ANameThatDoesNotFitOrCannotBeWrittenIsRefused) {
  write("self/mountinfo", "40 1 7:26 / /media/card rw - ext4 /dev/loop9 rw\n");
  for (const auto& [kind, most] : {std::pair<const char*, std::size_t>{"ext4", 16},
                                   {"ext2", 16},
                                   {"xfs", 12},
                                   {"btrfs", 255},
                                   {"vfat", 11}}) {
    EXPECT_EQ(rename(kind, std::string(most + 1, 'x')), dissent::kBadArgument) << kind;
    EXPECT_NE(rename(kind, std::string(most, 'x')), dissent::kBadArgument) << kind;
  }
  EXPECT_EQ(rename("ext4", std::string("a\0b", 3)), dissent::kBadArgument);
  card_.deviceNode.clear();
  for (const char* kind : {"nfs4", "fuse.sshfs", "tmpfs"})
    EXPECT_EQ(rename(kind, "New"), dissent::kUnsupported) << kind;
}

TEST_F(CommandsTest, AHolderIsFoundByTextAndMountButNotInAnotherNamespaceOrPlace) {
  link("100/cwd", seen("/media/card2/clips"));  // the same beginning
  link("100/ns/mnt", "mnt:[1]");
  link("101/cwd", seen("/media/card"));  // a container's folder of the same name
  link("101/ns/mnt", "mnt:[2]");
  write("101/fdinfo/3", "pos:\t0\nflags:\t0100000\nmnt_id:\t400\nino:\t40\n");
  write("102/maps", "7f00-7f10 r--p 00000000 07:1b 12    " + seen("/media/card/lib.so") + "\n");
  EXPECT_EQ(findHolder(options_, card_), std::nullopt);

  write("104/maps", "00400000-00401000 rw-p 00000000 00:00 0\n7f00-7f10 r--p 00000000 07:1a 12    " +
                        seen("/media/card/lib.so") + "\n");
  EXPECT_EQ(findHolder(options_, card_), 104);
  write("104/task/104/stat", "104 (a) b) D 1 1");
  EXPECT_EQ(findHolder(options_, card_), std::nullopt) << "its mappings may be out of reach for ever";

  write("20/fdinfo/12", "pos:\t0\nflags:\t0100000\nmnt_id:\t40\nino:\t40\n");
  EXPECT_EQ(findHolder(options_, card_), 20);
  link("3/exe", seen("/media/card/tool (deleted)"));
  link("3/ns/mnt", "mnt:[1]");
  EXPECT_EQ(findHolder(options_, card_), 3);
}

}  // namespace
}  // namespace kmv
