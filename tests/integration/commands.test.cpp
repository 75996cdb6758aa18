// SPDX-License-Identifier: MIT
// Real volumes that are asked to go or to change their names.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "integration/support/CommandStory.h"
#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "support/Guarded.h"

namespace kmv::integration {
namespace {

using dissent::kBadArgument;
using dissent::kBusy;
using dissent::kDone;
using dissent::kNotMounted;
using dissent::kNotPrivileged;
using dissent::kNotWritable;

void expectHeldBy(const std::string& point, const std::function<bool()>& takeHold) {
  const Child child(takeHold);
  ASSERT_TRUE(child.holds());
  const Dissent dissent = unmountAt(point);
  EXPECT_EQ(statusOf(dissent), kBusy);
  EXPECT_EQ(holderIn(dissent), child.id());
  EXPECT_TRUE(isMounted(point));
}

bool mapFile(const std::string& path) {
  const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
  void* const memory = mmap(nullptr, 1, PROT_READ, MAP_PRIVATE, file, 0);
  close(file);
  return memory != MAP_FAILED;
}

void tellWhoHolds(const std::string& point) {
  const std::string file = point + "/sleep";
  std::filesystem::copy_file("/bin/sleep", file);
  {
    SCOPED_TRACE("working folder");
    expectHeldBy(point, [&] { return chdir(point.c_str()) == 0; });
  }
  {
    SCOPED_TRACE("root");
    expectHeldBy(point, [&] { return chroot(point.c_str()) == 0; });
  }
  {
    SCOPED_TRACE("open file");
    expectHeldBy(point, [&] { return open(file.c_str(), O_RDONLY) >= 0; });
  }
  {
    SCOPED_TRACE("mapping");
    expectHeldBy(point, [&] { return mapFile(file); });
  }
  {
    SCOPED_TRACE("program");
    Process program({file, "100"});
    EXPECT_EQ(holderIn(unmountAt(point)), program.id());
  }
  EXPECT_EQ(statusOf(unmountAt(point)), kDone);
  EXPECT_FALSE(isMounted(point));
}

TEST_F(VolumeStory, ABusyVolumeStaysAndTheProcessThatHoldsItIsNamed) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card\nwith a line feed");
  mountVolume(card.node(), point, "ext4");
  const TargetVolume volume = volumeAt(point);
  tellWhoHolds(point);
  EXPECT_EQ(statusOf(unmountVolume({}, volume)), kNotMounted) << "once is enough";
}

TEST_F(VolumeStory, AHolderOnBtrfsIsFoundThoughItsFilesHaveAnotherDeviceNumber) {
  if (const std::string missing = missingForImages("btrfs"); !missing.empty()) GTEST_SKIP() << missing;
  const LoopDevice card = newVolume("btrfs", "Card");
  const std::string point = space().folder("card");
  mountVolume(card.node(), point, "btrfs");
  tellWhoHolds(point);
}

TEST_F(VolumeStory, AVolumeUnderAnotherIsHeldByNoProcess) {
  const LoopDevice card = newVolume("ext4", "Card"), inner = newVolume("ext4", "Inner");
  const std::string point = space().folder("card");
  mountVolume(card.node(), point, "ext4");
  ASSERT_EQ(mkdir((point + "/inner").c_str(), 0755), 0);
  mountVolume(inner.node(), point + "/inner", "ext4");
  const Child elsewhere([&] { return chdir((point + "/inner").c_str()) == 0; });
  const Dissent dissent = unmountAt(point);
  EXPECT_EQ(statusOf(dissent), kBusy);
  ASSERT_TRUE(dissent);
  EXPECT_FALSE(dissent->contains(key::kDissenterProcessID)) << "the child holds the inner one";
}

TEST_F(FuseStory, AProcessOnAServerThatDoesNotAnswerDelaysNoSearchForHolders) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card"), dead = space().folder("dead");
  mountVolume(card.node(), point, "ext4");
  FuseServer server(dead);
  const Child stranded([&] { return chdir((dead + "/folder").c_str()) == 0; });
  const Child holder([&] { return open(point.c_str(), O_RDONLY) >= 0; });
  ASSERT_TRUE(stranded.holds() && holder.holds());
  server.stop();
  EXPECT_EQ(holderIn(unmountAt(point)), holder.id());
  const Dissent dissent = unmountAt(dead);
  EXPECT_EQ(statusOf(dissent), kBusy);
  EXPECT_EQ(holderIn(dissent), stranded.id());
}

TEST_F(VolumeStory, TheRootIsNeverTakenForAVolumeToUnmount) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card");
  mountVolume(card.node(), point, "ext4");
  std::filesystem::create_directories(point + "/proc/self");
  std::ofstream(point + "/proc/self/mountinfo") << "40 1 7:26 / / rw - ext4 /dev/loop9 rw\n";
  const Child tenant([&] {
    if (chroot(point.c_str()) != 0 || chdir("/") != 0) return false;
    const Dissent dissent = unmountVolume({}, {"/", "ext4", "/dev/loop9", 40, {7, 26}});
    return statusOf(dissent) == kBusy && open("/still writable", O_CREAT | O_WRONLY, 0600) >= 0;
  });
  EXPECT_TRUE(tenant.holds());
}

TEST_F(VolumeStory, APlainUserIsToldThatTheRightIsMissing) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card");
  mountVolume(card.node(), point, "ext4");
  EXPECT_EQ(asPlainUser([&] { return statusOf(unmountAt(point)); }), kNotPrivileged);
  EXPECT_EQ(asPlainUser([&] { return renameAt(point, "Mine"); }), kNotPrivileged);
  EXPECT_TRUE(isMounted(point));
  EXPECT_EQ(blkidValue(card.node(), "LABEL"), "Card");
}

TEST_F(FuseStory, APlainUserTakesAnOwnFuseMountAway) {
  if (!isInstalled("fusermount3")) GTEST_SKIP() << "needs fusermount3";
  const std::string point = space().folder("own");
  ASSERT_EQ(chown(point.c_str(), kNobody, kNobody), 0);
  openFuseToEveryone();
  // A plain user may not get to where this was built.
  const std::string program = space().path("server");
  std::filesystem::copy_file(KMV_HELLO_FILE_SYSTEM, program);
  std::filesystem::permissions(program, std::filesystem::perms(0755));
  const auto story = [&]() -> std::int64_t {
    FuseServer server(point, program);
    {
      const Child holder([&] { return chdir(point.c_str()) == 0; });
      const Dissent dissent = unmountAt(point);
      if (statusOf(dissent) != kBusy || holderIn(dissent) != holder.id()) return 2;
    }
    return statusOf(unmountAt(point));
  };
  EXPECT_EQ(asPlainUser(story), kDone);
  EXPECT_FALSE(isMounted(point));
}

class RenameStory : public VolumeStory, public ::testing::WithParamInterface<std::pair<const char*, int>> {};

TEST_P(RenameStory, TheNewNameStandsOnTheMediumWholeOrNotAtAll) {
  const auto [kind, most] = GetParam();
  if (const std::string missing = missingForImages(kind); !missing.empty()) GTEST_SKIP() << missing;
  const LoopDevice card = newVolume(kind, "Card");
  const std::string point = space().folder("card"), longest(static_cast<std::size_t>(most), 'n');
  mountVolume(card.node(), point, kind);
  EXPECT_EQ(renameAt(point, "Card Zwölf"), kDone);
  EXPECT_EQ(blkidValue(card.node(), "LABEL"), "Card Zwölf");
  EXPECT_EQ(renameAt(point, longest), kDone);
  EXPECT_EQ(blkidValue(card.node(), "LABEL"), longest);
  EXPECT_EQ(renameAt(point, longest + "n"), kBadArgument);
  EXPECT_EQ(blkidValue(card.node(), "LABEL"), longest);
  remountReadOnly(point);
  EXPECT_EQ(renameAt(point, "Other"), kNotWritable);
  EXPECT_EQ(statusOf(unmountAt(point)), kDone) << "nothing was left open on it";
  EXPECT_EQ(blkidValue(card.node(), "LABEL"), longest);
}

INSTANTIATE_TEST_SUITE_P(, RenameStory,
                         ::testing::Values(std::pair("ext4", 16), std::pair("xfs", 12),
                                           std::pair("btrfs", 255)),
                         [](const auto& story) { return std::string(story.param.first); });

/// What the registry answers, taken on its queue.
class Answers {
 public:
  Answers() {
    for (const auto name : {kDiskEjectionRejected, kDiskArbiterRenameSucceeded, kDiskArbiterRenameFailed}) {
      registrations_.push_back(
          NotificationCenter::defaultCenter().addObserver(name, [answers = answers_](const auto& answer) {
            answers.with([&](auto& all) { all.push_back(answer); });
          }));
    }
  }
  std::optional<Notification> next(Observer& observer) {
    const auto one = [this] {
      return answers_.with([](auto& all) { return all.empty() ? std::nullopt : std::optional(all.front()); });
    };
    if (!observer.waitFor([&] { return one().has_value(); })) return std::nullopt;
    auto answer = one();
    answers_.with([](auto& all) { all.erase(all.begin()); });
    return answer;
  }

 private:
  Guarded<std::vector<Notification>> answers_;
  std::vector<NotificationCenter::Registration> registrations_;
};

TEST_F(VolumeStory, TheRegistryUnmountsAndRenamesAndTellsWhatCameOfIt) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card");
  mountVolume(card.node(), point, "ext4");
  Observer observer(space().scratch());
  observer.expect({"added card"});
  Answers answers;
  KMVDiskArbiter& arbiter = observer.arbiter();
  const URL root = URL::fileURLWithPath(point, true);
  {
    const Child holder([&] { return chdir(point.c_str()) == 0; });
    EXPECT_TRUE(arbiter.unmountVolumeAtRootURL(root));
    const auto refused = answers.next(observer);
    ASSERT_TRUE(refused);
    EXPECT_EQ(*refused->object.dictionary(),
              (Dictionary{{"pid", holder.id()}, {"status", kBusy}, {"volName", root}}));
    observer.expect({});
  }
  arbiter.renameDriveWithRootURL(root, "Reel");
  const auto renamed = answers.next(observer);
  ASSERT_TRUE(renamed);
  EXPECT_EQ(renamed->name, "kDiskArbiterRenameSucceeded");
  EXPECT_EQ(*renamed->userInfo, (Dictionary{{"DAVolumePath", root}}));
  EXPECT_EQ(*arbiter.forceReadDetailsOfDriveMountedAtPath(point)->text("DAVolumeName"), "Reel")
      << "the platform knows the new name when it answers";
  arbiter.renameDriveWithRootURL(root, "a name far too long for ext4");
  EXPECT_EQ(answers.next(observer)->name, "kDiskArbiterRenameFailed");
  EXPECT_EQ(blkidValue(card.node(), "LABEL"), "Reel");

  EXPECT_TRUE(arbiter.unmountVolumeAtRootURL(root));
  observer.expect({"removed card"});
  EXPECT_FALSE(arbiter.unmountVolumeAtRootURL(root));
  EXPECT_TRUE(observer.unmounted(card.name()));
}

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
  EXPECT_NE(arbiter.forceReadDetailsOfDriveMountedAtPath(point), nullptr);
  Answers answers;
  arbiter.renameDriveWithRootURL(root, "Reel");
  ASSERT_TRUE(answers.next(observer));
  EXPECT_EQ(run({"umount", point}).exitCode, 0);
  observer.expect({"removed card"});
}

}  // namespace
}  // namespace kmv::integration
