// SPDX-License-Identifier: MIT
// Real volumes that are asked to go or to change their names.
#include "platform/linux/session/Commands.h"

#include <sys/mman.h>

#include "integration/support/Child.h"
#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/posix/SystemFiles.h"
#include "support/SessionRecorder.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

using dissent::kBadArgument;
using dissent::kBusy;
using dissent::kDone;
using dissent::kNotMounted;
using dissent::kNotPrivileged;
using dissent::kNotWritable;

/// The volume mounted last at `point`.
TargetVolume volumeAt(const std::string& point) {
  TargetVolume volume;
  for (const MountEntry& entry : parseMountInfo(readFile("/proc/self/mountinfo").value_or(""))) {
    if (entry.point == point) volume = targetOf(entry);
  }
  return volume;
}

/// Of the mount namespace and root folder that the process has at the moment.
Commands commandsHere() {
  return {{}, std::make_shared<MountTable>(LinuxOptions())};
}

/// The status, and the process that is to blame (0: none).
using Answer = std::pair<std::int64_t, std::int64_t>;
Answer answerIn(const Dissent& dissent) {
  if (!dissent) return {kDone, 0};
  const Value* id = dissent->find(key::kDissenterProcessID);
  return {dissent->find(key::kDissenterStatus)->integerValue(), id == nullptr ? 0 : id->integerValue()};
}
Answer unmountAt(const std::string& point) {
  return answerIn(commandsHere().unmount(volumeAt(point)));
}
std::int64_t renameAt(const std::string& point, const std::string& name) {
  return answerIn(commandsHere().rename(volumeAt(point), name)).first;
}
bool isMounted(const std::string& point) {
  return volumeAt(point).mountId != 0;
}

bool mapFile(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  void* const memory = mmap(nullptr, 1, PROT_READ, MAP_PRIVATE, file, 0);
  close(file);
  return memory != MAP_FAILED;
}

// On btrfs, files have another device number than their mount.
class BusyStory : public VolumeStory, public ::testing::WithParamInterface<const char*> {};

TEST_P(BusyStory, ABusyVolumeStaysAndTheProcessThatHoldsItIsNamed) {
  if (const std::string missing = missingForImages(GetParam()); !missing.empty()) GTEST_SKIP() << missing;
  const LoopDevice card = newVolume(GetParam(), "Card");
  const std::string point = space().folder("card\nwith a line feed"), file = point + "/sleep";
  mountVolume(card.node(), point, GetParam());
  const TargetVolume volume = volumeAt(point);
  std::filesystem::copy_file("/bin/sleep", file);
  const std::pair<const char*, Child::Work> holds[] = {
      {"working folder", [&] { return chdir(point.c_str()) == 0; }},
      {"root", [&] { return chroot(point.c_str()) == 0; }},
      {"open file", [&] { return open(file.c_str(), O_RDONLY) >= 0; }},
      {"mapping", [&] { return mapFile(file); }}};
  for (const auto& [how, takeHold] : holds) {
    Child child(takeHold);
    ASSERT_TRUE(child.holds()) << how;
    EXPECT_EQ(unmountAt(point), (Answer{kBusy, child.id()})) << how;
    EXPECT_TRUE(isMounted(point));
  }
  {
    const Process program({file, "100"});
    EXPECT_EQ(unmountAt(point), (Answer{kBusy, program.id()}));
  }
  EXPECT_EQ(unmountAt(point).first, kDone);
  EXPECT_FALSE(isMounted(point));
  EXPECT_EQ(answerIn(commandsHere().unmount(volume)).first, kNotMounted) << "once is enough";
}

INSTANTIATE_TEST_SUITE_P(, BusyStory, ::testing::Values("ext4", "btrfs"),
                         [](const auto& story) { return std::string(story.param); });

TEST_F(VolumeStory, AVolumeUnderAnotherIsHeldByNoProcess) {
  const LoopDevice card = newVolume("ext4", "Card"), inner = newVolume("ext4", "Inner");
  const std::string point = space().folder("card");
  mountVolume(card.node(), point, "ext4");
  ASSERT_EQ(mkdir((point + "/inner").c_str(), 0755), 0);
  mountVolume(inner.node(), point + "/inner", "ext4");
  Child elsewhere([&] { return chdir((point + "/inner").c_str()) == 0; });
  ASSERT_TRUE(elsewhere.holds());
  EXPECT_EQ(unmountAt(point), (Answer{kBusy, 0})) << "the child holds the inner one";
}

TEST_F(VolumeStory, AnUnmountedVolumeIsNotTakenForTheOneThatIsSeenInItsPlace) {
  const LoopDevice card = newVolume("ext4", "Card"), other = newVolume("ext4", "Other");
  const std::string point = space().folder("point"), day = point + "/day";
  mountVolume(card.node(), point, "ext4");
  std::filesystem::create_directory(day);
  LinuxPlatform platform;
  SessionRecorder recorder(platform, [&](const Dictionary& disk) {
    const URL* path = disk.url(key::kVolumePath);
    return path == nullptr ? "none" : path->path();
  });
  // Another volume, and then a folder of the same one, on top of it.
  for (const std::string& top : {other.node(), day}) {
    top == day ? bindMount(day, point) : mountVolume(top, point, "ext4");
    const auto disk = recorder.session().diskFromVolumePath(URL::fileURLWithPath(point, true));
    ASSERT_NE(disk, nullptr) << top;
    recorder.session().unmount(*disk, &SessionRecorder::answered, &recorder);
    EXPECT_TRUE(eventually([&] { return !recorder.lines().empty(); }));
    EXPECT_EQ(recorder.take(), SessionRecorder::Lines{"answered 0 none"}) << top;
  }
}

TEST_F(FuseStory, AProcessOnAServerThatDoesNotAnswerDelaysNoSearchForHolders) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card"), dead = space().folder("dead");
  mountVolume(card.node(), point, "ext4");
  FuseServer server(dead);
  Child stranded([&] { return chdir((dead + "/clips").c_str()) == 0; });
  Child holder([&] { return open(point.c_str(), O_RDONLY) >= 0; });
  ASSERT_TRUE(stranded.holds() && holder.holds());
  server.stop();
  EXPECT_EQ(unmountAt(point), (Answer{kBusy, holder.id()}));
  EXPECT_EQ(unmountAt(dead), (Answer{kBusy, stranded.id()}));
}

TEST_F(VolumeStory, TheRootIsNeverTakenForAVolumeToUnmount) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card");
  mountVolume(card.node(), point, "ext4");
  std::filesystem::create_directories(point + "/recorded/self");
  std::ofstream(point + "/recorded/self/mountinfo") << "40 1 7:26 / / rw - ext4 /dev/loop9 rw\n";
  Child tenant([&] {
    if (chroot(point.c_str()) != 0 || chdir("/") != 0) return false;
    LinuxOptions options;
    options.procRoot = "/recorded";
    const Commands commands(options, std::make_shared<MountTable>(options));
    const Dissent dissent = commands.unmount({"/", "ext4", "/dev/loop9", 40, {7, 26}});
    return answerIn(dissent).first == kBusy && open("/still writable", O_CREAT | O_WRONLY, 0600) >= 0;
  });
  EXPECT_TRUE(tenant.holds());
}

TEST_F(FuseStory, APlainUserIsToldThatTheRightIsMissingButTakesAnOwnFuseMountAway) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card"), own = space().folder("own");
  mountVolume(card.node(), point, "ext4");
  EXPECT_EQ(Child([&] { return unmountAt(point).first; }, Child::As::plainUser).result(), kNotPrivileged);
  EXPECT_EQ(Child([&] { return renameAt(point, "Mine"); }, Child::As::plainUser).result(), kNotPrivileged);
  EXPECT_TRUE(isMounted(point));
  EXPECT_EQ(blkidValue(card.node(), "LABEL"), "Card");

  if (!isInstalled("fusermount3")) GTEST_SKIP() << "needs fusermount3 for the rest";
  ASSERT_EQ(chown(own.c_str(), kNobody, kNobody), 0);
  openFuseToEveryone();
  const std::string program = copyProgram(KMV_CODEX_FILE_SYSTEM, space());
  const auto story = [&]() -> std::int64_t {
    FuseServer server(own, program);
    {
      Child holder([&] { return chdir(own.c_str()) == 0; });
      if (!holder.holds() || unmountAt(own) != Answer{kBusy, holder.id()}) return 2;
    }
    return unmountAt(own).first;
  };
  EXPECT_EQ(Child(story, Child::As::plainUser).result(), kDone);
  EXPECT_FALSE(isMounted(own));
}

class RenameStory : public VolumeStory, public ::testing::WithParamInterface<std::pair<const char*, int>> {};

TEST_P(RenameStory, TheNewNameStandsOnTheMediumWholeOrNotAtAll) {
  const auto [kind, most] = GetParam();
  if (const std::string missing = missingForImages(kind); !missing.empty()) GTEST_SKIP() << missing;
  const LoopDevice card = newVolume(kind, "Card");
  const std::string point = space().folder("card"), longest(static_cast<std::size_t>(most), 'n');
  mountVolume(card.node(), point, kind);
  for (const std::string& name : {std::string("Card Zwölf"), longest}) {
    EXPECT_EQ(renameAt(point, name), kDone);
    EXPECT_EQ(blkidValue(card.node(), "LABEL"), name);
  }
  EXPECT_EQ(renameAt(point, longest + "n"), kBadArgument);
  remountReadOnly(point);
  EXPECT_EQ(renameAt(point, "Other"), kNotWritable);
  EXPECT_EQ(unmountAt(point).first, kDone) << "nothing was left open on it";
  EXPECT_EQ(blkidValue(card.node(), "LABEL"), longest);
}

INSTANTIATE_TEST_SUITE_P(, RenameStory,
                         ::testing::Values(std::pair("ext4", 16), std::pair("xfs", 12),
                                           std::pair("btrfs", 255)),
                         [](const auto& story) { return std::string(story.param.first); });

TEST_F(VolumeStory, TheLibraryInFullUseKeepsNoVolumeBusy) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card");
  mountVolume(card.node(), point, "ext4");
  std::ofstream(point + "/.OrvaneProductsUUID.orv") << "ABC";
  Observer observer(space().scratch());
  observer.expect({"added card"});
  KMVDiskArbiter& arbiter = observer.arbiter();
  const URL file = URL::fileURLWithPath(point + "/clips/1.mov", false),
            root = URL::fileURLWithPath(point, true);
  EXPECT_EQ(arbiter.uuidFromOrvaneFileForDriveRepresentedByURL(file), "ABC");
  EXPECT_NE(arbiter.findRootMountDictionaryForURL(file), nullptr);
  EXPECT_TRUE(arbiter.rootVolumeURLStillExists(root));
  arbiter.renameDriveWithRootURL(root, "Reel");
  EXPECT_TRUE(observer.waitFor(
      [&] { return *arbiter.forceReadDetailsOfDriveMountedAtPath(point)->text("DAVolumeName") == "Reel"; }));
  unmount(point);
  observer.expect({"removed card"});
}

}  // namespace
}  // namespace kmv::integration
