// SPDX-License-Identifier: MIT
// What becomes of real volumes when they are attached, mounted, moved and taken away, beside servers that do not answer,
// and for users without rights.
#include <sys/mount.h>

#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "support/Sanitizers.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

std::string upperCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
  return text;
}

void expectIdentityOf(const LoopDevice& device, const DictionarySnapshot& description) {
  ASSERT_NE(description, nullptr);
  ASSERT_NE(description->uuid("DAVolumeUUID"), nullptr);
  EXPECT_EQ(description->uuid("DAVolumeUUID")->string(), upperCase(blkidValue(device.node(), "UUID")));
  ASSERT_NE(description->text(kDiskVolumeName), nullptr);
  EXPECT_EQ(*description->text(kDiskVolumeName), blkidValue(device.node(), "LABEL"));
}

class LifeStory : public VolumeStory, public ::testing::WithParamInterface<const char*> {};

TEST_P(LifeStory, AVolumeIsAttachedMountedMovedUnmountedAndDetached) {
  const std::string kind = GetParam(), first = "first", second = "second";
  if (const auto missing = missingForImages(kind); !missing.empty()) GTEST_SKIP() << missing;
  Observer observer(space().scratch());
  LoopDevice device = newVolume(kind, "Card One");
  const auto attached = observer.unmounted(device.name());
  expectIdentityOf(device, attached);
  EXPECT_FALSE(attached->contains(kDiskURLKey));
  const double time = attached->doubleValue(kDiskAppearanceTimeKey);

  mountVolume(device.node(), space().folder(first), kind);
  observer.expect({"added first"});
  EXPECT_FALSE(observer.isUnmounted(device.name()));
  const auto drive = observer.drive(first);
  expectIdentityOf(device, drive);
  EXPECT_EQ(*drive->text(kDiskUUIDKey), drive->uuid("DAVolumeUUID")->string());
  EXPECT_EQ(*drive->text("DAVolumeKind"), kind);
  EXPECT_EQ(*drive->text("DAMediaBSDName"), device.name());
  EXPECT_EQ(drive->boolValue(kDiskMountedPriorToApplicationInstance), false);
  moveMount(space().path(first), space().folder(second));
  observer.expect({"removed first", "added second"});
  unmount(space().path(second));
  observer.expect({"removed second"});
  const auto last = observer.unmounted(device.name());
  expectIdentityOf(device, last);
  EXPECT_EQ(last->doubleValue(kDiskAppearanceTimeKey), time) << "the medium never left";
  device.detach();
  EXPECT_TRUE(observer.isForgotten(device.name()));
  observer.expect({});
}

INSTANTIATE_TEST_SUITE_P(, LifeStory, ::testing::Values("ext4", "xfs", "btrfs"),
                         [](const auto& story) { return std::string(story.param); });

TEST_F(FuseStory, AFuseVolumeIsADriveWhileItIsMountedWhateverBecomesOfItsServer) {
  Observer observer(space().scratch());
  const std::string point = space().folder("fuse");
  {
    FuseServer server(point);
    observer.expect({"added fuse"});
    EXPECT_EQ(*observer.drive("fuse")->text("DAVolumeKind"), "fuse.kmvhello");
    EXPECT_FALSE(observer.drive("fuse")->contains("DAMediaBSDName"));
    server.end(SIGTERM);
    observer.expect({"removed fuse"});
  }
  FuseServer server(point);
  observer.expect({"added fuse"});
  const int busy = open((point + "/clips").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(busy, 0);
  server.end();
  observer.expect({});  // the dead mount is still mounted
  unmount(point, MNT_DETACH);
  observer.expect({"removed fuse"});
  close(busy);
  observer.expect({});
}

TEST_F(FuseStory, AServerThatDoesNotAnswerDelaysNobody) {
  constexpr std::chrono::seconds kLimit{5};
  const LoopDevice card = newVolume("ext4", "Card"), other = newVolume("ext4", "Other"),
                   spare = newVolume("ext4", "Spare");
  FuseServer server(space().folder("fuse"));
  // A drive that is reached through the server, and a folder of that drive.
  mountVolume(card.node(), space().path("fuse/clips"), "ext4");
  ASSERT_EQ(mkdir(space().path("fuse/clips/day").c_str(), 0755), 0);
  bindMount(space().path("fuse/clips/day"), space().folder("day"));
  mountVolume(other.node(), space().folder("folder"), "ext4");
  // A folder of a drive that is reached through an overlay over the server, and a file through one over none.
  const auto overlay = [&](const std::string& name, const std::string& lower) {
    const std::string layers = space().folder(name + ".upper"), work = space().folder(name + ".work");
    mountVolume("layers", space().folder(name), "overlay",
                "lowerdir=" + lower + ",upperdir=" + layers + ",workdir=" + work);
  };
  overlay("over", space().path("fuse"));
  overlay("local", space().folder("lower"));
  const std::string whole = space().folder("whole");
  mountVolume(spare.node(), whole, "ext4");
  for (const std::string& file : {whole + "/file", space().path("local/file")}) std::ofstream(file) << "x";
  ASSERT_EQ(mkdir((whole + "/reel").c_str(), 0755), 0);
  bindMount(whole + "/reel", space().path("over/clips/reel"));
  bindMount(whole + "/file", space().path("local/file"));
  unmount(whole);
  server.stop();
  const auto start = std::chrono::steady_clock::now();
  Observer observer(space().scratch());
  EXPECT_TRUE(observer.waitFor([&] { return observer.all().size() == 4; }));
  EXPECT_EQ(observer.present(), (Observer::Lines{"folder", "fuse", "fuse/clips", "over/clips/reel"}));
  EXPECT_EQ(observer.hidingRule("local/file"), "file");
  unmount(space().path("folder"));
  EXPECT_TRUE(observer.waitFor([&] { return observer.all().back() == "removed folder"; }));
  mountVolume(other.node(), space().folder("second"), "ext4");
  EXPECT_TRUE(observer.waitFor([&] { return observer.all().back() == "added second"; }));
  EXPECT_LE(std::chrono::steady_clock::now() - start, kLimit);
  EXPECT_EQ(observer.hidingRule("day"), "folder");
  server.resume();
}

#ifndef KMV_THREAD_SANITIZER

class PlainUserStory : public Story {
 protected:
  void SetUp() override {
    std::string missing = missingForFuse();
    if (missing.empty()) missing = missingForUserNamespaces();
    // Opened now: a plain user may not get to where it was built.
    const int file = open(KMV_CODEX_FILE_SYSTEM, O_RDONLY | O_CLOEXEC);
    begin(missing, Namespace::As::plainUser);
    if (!IsSkipped()) program_ = copyProgram("/proc/self/fd/" + std::to_string(file), space());
  }
  std::string program_;
};

TEST_F(PlainUserStory, APlainUserSeesWhatAPlainUserMounts) {
  Observer observer(space().scratch());
  const std::string point = space().folder("fuse"), again = space().folder("again");
  mountVolume("nothing", space().folder("memory"), "tmpfs");
  FuseServer server(point, program_);
  observer.expect({"added fuse"});
  bindMount(point, again);
  observer.expect({});
  EXPECT_EQ(observer.hidingRule("again"), "bind");
  EXPECT_EQ(observer.hidingRule("memory"), "pseudo");
  unmount(point);
  observer.expect({"removed fuse", "added again"});
  unmount(again);
  observer.expect({"removed again"});
}

#endif

}  // namespace
}  // namespace kmv::integration
