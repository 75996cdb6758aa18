// SPDX-License-Identifier: MIT
// What commands answer before, and instead of, the kernel's help. Their work on real volumes is told
// elsewhere.
#include "platform/linux/session/Commands.h"

#include <sys/sysmacros.h>

#include "platform/linux/session/CommandThreads.h"
#include "platform/linux/session/Holders.h"
#include "support/OtherThreads.h"
#include "support/Process.h"
#include "support/TemporaryFolder.h"
#include "support/Testing.h"

namespace kmv {
namespace {

/// A /proc of plain files.
class CommandsTest : public ::testing::Test {
 protected:
  CommandsTest() {
    options_.procRoot = root_ / "proc";
    options_.viewRoot = root_ / "view";  // where nothing is: no command may touch what is really mounted
    link("self/ns/mnt", "mnt:[1]");
  }

  void write(const std::string& name, const std::string& text) { root_.write("proc/" + name, text); }
  void link(const std::string& name, const std::string& target) { root_.link("proc/" + name, target); }
  /// A path as other processes see it.
  std::string seen(const std::string& path) const { return options_.viewRoot + path; }

  static std::int64_t statusOf(const Dissent& dissent) {
    return dissent ? dissent->find(key::kDissenterStatus)->integerValue() : dissent::kDone;
  }
  Commands commands() const { return {options_, std::make_shared<MountTable>(options_)}; }
  std::int64_t unmount() { return statusOf(commands().unmount(card_)); }
  std::int64_t rename(const std::string& kind, const std::string& name) {
    card_.kind = kind;
    write("self/mountinfo", "40 1 7:26 / /media/card rw - " + kind + " /dev/loop9 rw\n");
    return statusOf(commands().rename(card_, name));
  }

  test::TemporaryFolder root_;
  LinuxOptions options_;
  TargetVolume card_{"/media/card", "ext4", "/dev/loop9", 40, {7, 26}};
};

TEST(CommandThreads, OneForEachVolumeAtATimeAndABoundForAll) {
  std::promise<void> mayEnd;
  const auto gate = mayEnd.get_future().share();
  std::atomic<int> running = 0, ended = 0;
  CommandThreads threads;
  const auto startFor = [&](std::uint64_t volume) {
    EXPECT_TRUE(threads.start(volume, [&, gate] { ++running, gate.wait(), ++ended; }));
  };
  for (int i = 0; i < 100; ++i) startFor(1);
  startFor(2);
  EXPECT_TRUE(test::eventually([&] { return running == 2; }));
  EXPECT_EQ(test::otherThreads(), 2);
  for (int i = 0; i < 2 * CommandThreads::kMostAtOnce; ++i) startFor(3 + static_cast<std::uint64_t>(i));
  EXPECT_TRUE(test::eventually([&] { return running == CommandThreads::kMostAtOnce; }));
  EXPECT_EQ(test::otherThreads(), CommandThreads::kMostAtOnce);
  mayEnd.set_value();
  EXPECT_TRUE(test::eventually([&] { return ended == 101 + 2 * CommandThreads::kMostAtOnce; }));
}

TEST_F(CommandsTest, RefusalsSpeakTheOriginalPlatformsNumbers) {
  for (const auto& [error, status] :
       std::initializer_list<std::pair<int, std::int32_t>>{{EBUSY, dissent::kBusy},
                                                           {EPERM, dissent::kNotPrivileged},
                                                           {EACCES, dissent::kNotPermitted},
                                                           {EINVAL, dissent::kNotMounted},
                                                           {EROFS, dissent::kNotWritable},
                                                           {ENOTTY, dissent::kUnsupported},
                                                           {ENOENT, dissent::kNotFound},
                                                           {EIO, dissent::kError}})
    EXPECT_EQ(dissent::ofError(error), status) << error;
  const std::string service = "org.freedesktop.UDisks2.Error.";
  for (const auto& [name, status] : std::initializer_list<std::pair<std::string, std::int32_t>>{
           {service + "DeviceBusy", dissent::kBusy},
           {service + "NotAuthorizedCanObtain", dissent::kNotPrivileged},
           {service + "MountedByOtherUser", dissent::kNotPermitted},
           {service + "NotSupported", dissent::kUnsupported},
           {"org.example.Error.DeviceBusy", dissent::kError},
           {"", dissent::kError}})
    EXPECT_EQ(dissent::ofErrorName(name), status) << name;
}

TEST_F(CommandsTest, AVolumeThatLostItsPlaceIsLeftAlone) {
  EXPECT_EQ(unmount(), dissent::kNoResources) << "no mount table at all: nothing is known";
  const std::string own = "40 1 7:26 / /media/card rw - ext4 /dev/loop9 rw\n";
  const struct {
    const char* story;
    std::string table;
    std::int32_t status;
  } kCases[] = {
      {"another mount took the place", "41 1 7:26 / /media/card rw - ext4 /dev/loop9 rw\n",
       dissent::kNotMounted},
      {"another volume has its id", "40 1 7:27 / /media/card rw - ext4 /dev/loop10 rw\n",
       dissent::kNotMounted},
      {"another kind has its id", "40 1 7:26 / /media/card rw - xfs /dev/loop9 rw\n", dissent::kNotMounted},
      {"it moved", "40 1 7:26 / /media/card2 rw - ext4 /dev/loop9 rw\n", dissent::kNotMounted},
      {"the path leads to another volume",
       own + "42 1 0:50 / /media rw - tmpfs t rw\n43 42 7:27 / /media/card rw - ext4 /dev/loop10 rw\n",
       dissent::kBusy},
      {"the path leads to what covers it", own + "41 40 0:50 / /media/card rw - tmpfs t rw\n",
       dissent::kBusy}};
  for (const auto& [story, table, status] : kCases) {
    write("self/mountinfo", table);
    EXPECT_EQ(unmount(), status) << story;
    EXPECT_EQ(statusOf(commands().rename(card_, "New")), dissent::kNotMounted) << story;
  }
}

/// A table whose mounts go one report later.
class VanishingMounts final : public MountTableWatcher {
 public:
  explicit VanishingMounts(MountEntry entry) : entry_(std::move(entry)) {}
  std::optional<Changes> refresh(bool) override {
    MountDelta delta;
    if (reads_++ == 0) delta.attached = {entry_};
    if (reads_ == 2) delta.detached = {entry_};
    return Changes{delta};
  }
  std::unique_ptr<MountChangeProbe> makeProbe() const override { return nullptr; }
  std::string name() const override { return "script"; }

 private:
  const MountEntry entry_;
  int reads_ = 0;
};

TEST_F(CommandsTest, WhatSomebodyElseUnmountsMeanwhileIsUnmounted) {
  const auto entry = parseMountLine("40 1 7:26 / /media/card rw - ext4 /dev/loop9 rw");
  const auto table = std::make_shared<MountTable>(std::make_unique<VanishingMounts>(entry.value()),
                                                  [](const MountEntry&, bool) { return true; });
  EXPECT_EQ(statusOf(Commands(options_, table).unmount(card_)), dissent::kDone);
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
  link("3/ns/mnt", "mnt:[3]");
  EXPECT_EQ(findHolder(options_, card_), 20) << "another name space's folder of that name";
}

TEST_F(CommandsTest, AMappingOnBtrfsMayHaveTheNumberThatItsFilesHave) {
  card_.kind = "btrfs";
  root_.write("view/media/card/lib.so", "");
  struct stat status {};
  ASSERT_EQ(stat(seen("/media/card").c_str(), &status), 0);
  std::ostringstream number;
  number << std::hex << major(status.st_dev) << ":" << minor(status.st_dev);
  write("100/maps",
        "7f00-7f10 r--p 00000000 " + number.str() + " 12    " + seen("/media/card/lib.so") + "\n");
  EXPECT_EQ(findHolder(options_, card_), 100);
}

}  // namespace
}  // namespace kmv
