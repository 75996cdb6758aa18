// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::testing {
namespace {

/// The registry's answers to commands, beside its other news.
class Commands : public ::testing::Test {
 protected:
  Commands() {
    for (const auto name : {kDiskEjectionRejected, kDiskArbiterRenameSucceeded, kDiskArbiterRenameFailed}) {
      registrations_.push_back(
          NotificationCenter::defaultCenter().addObserver(name, [this](const auto& answer) {
            answers.push_back(answer);
            queues.push_back(registry.machine.currentQueueLabel());
          }));
    }
    card = registry.machine.plugIn({.name = "Card", .mountPoint = "/Volumes/Card"});
    registry.start();
    registry.news();
  }

  static URL folder(const std::string& path) { return URL::fileURLWithPath(path, true); }
  bool unmount(const std::string& path) { return registry.arbiter().unmountVolumeAtRootURL(folder(path)); }
  void rename(const std::string& path, const std::string& name) {
    registry.arbiter().renameDriveWithRootURL(folder(path), name);
  }

  Registry registry;
  DiskId card{};
  std::vector<Notification> answers;
  Lines queues;

 private:
  std::vector<NotificationCenter::Registration> registrations_;
};

TEST_F(Commands, AnUnmountIsAnnouncedAsARemovalOnly) {
  EXPECT_TRUE(unmount("/Volumes/Card"));
  EXPECT_EQ(registry.news(), Lines{}) << "asked for, not done by the call";
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), Lines{"removed /Volumes/Card"});
  EXPECT_TRUE(answers.empty());
  EXPECT_EQ(registry.arbiter().unmountedDictionaries().size(), 1u);
}

TEST_F(Commands, WhatIsNoVolumeRootIsNotAskedFor) {
  registry.machine.createItem("/Volumes/Card/clip.mov");
  EXPECT_FALSE(unmount("/Volumes/Card/clip.mov"));
  EXPECT_FALSE(unmount("/Volumes"));
  rename("/Volumes/Card/clip.mov", "Other");
  registry.arbiter().setDiskArbitrationSession(nullptr);
  EXPECT_FALSE(unmount("/Volumes/Card"));
  rename("/Volumes/Card", "Other");
  registry.machine.runUntilIdle();
  EXPECT_TRUE(answers.empty());
  EXPECT_EQ(registry.news(), Lines{});
}

TEST_F(Commands, ARefusedUnmountTellsWhoRefusedAndWhy) {
  registry.machine.refuseNextUnmount(dissent::kBusy, 4711);
  EXPECT_TRUE(unmount("/Volumes/Card"));
  registry.machine.runUntilIdle();
  registry.machine.refuseNextUnmount({});
  EXPECT_TRUE(unmount("/Volumes/Card"));
  registry.machine.refuseNextUnmount(-7);
  EXPECT_TRUE(unmount("/Volumes/Card"));
  registry.machine.unplug(card);  // before the platform answers
  registry.machine.runUntilIdle();

  ASSERT_EQ(answers.size(), 3u);
  const URL unknown = *URL::fromString("Unknown");
  EXPECT_EQ(*answers[0].object.dictionary(),
            (Dictionary{{"pid", 4711}, {"status", dissent::kBusy}, {"volName", folder("/Volumes/Card")}}));
  EXPECT_EQ(*answers[1].object.dictionary(), (Dictionary{{"pid", 0}, {"status", 0}, {"volName", unknown}}));
  EXPECT_EQ(*answers[2].object.dictionary(), (Dictionary{{"pid", 0}, {"status", -7}, {"volName", unknown}}));
  EXPECT_EQ(answers[0].userInfo, nullptr);
  EXPECT_EQ(queues, Lines(3, registry.arbiter().arbiterQueue()->label()));
}

TEST_F(Commands, ARenameIsAnsweredByTheRegistryAndAnnouncedAsAChange) {
  rename("/Volumes/Card", "Reel");
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), Lines{"changed /Volumes/Reel"});
  registry.machine.refuseNextRename(dissent::kNotWritable);
  rename("/Volumes/Reel", "Other");
  registry.machine.runUntilIdle();
  rename("/Volumes/Reel", "Other");
  registry.machine.unplug(card);
  registry.machine.runUntilIdle();

  ASSERT_EQ(answers.size(), 3u);
  EXPECT_EQ(answers[0].name, "kDiskArbiterRenameSucceeded");
  EXPECT_EQ(answers[0].object.object().get(), &registry.arbiter());
  EXPECT_EQ(*answers[0].userInfo, (Dictionary{{"DAVolumePath", folder("/Volumes/Reel")}}));
  EXPECT_EQ(answers[1].name, "kDiskArbiterRenameFailed");
  EXPECT_EQ(answers[1].object.identity(), static_cast<Object*>(&registry.arbiter()));
  EXPECT_EQ(*answers[1].userInfo, (Dictionary{{"DAVolumePath", folder("/Volumes/Reel")}}));
  EXPECT_EQ(answers[2].name, "kDiskArbiterRenameSucceeded");
  EXPECT_EQ(*answers[2].userInfo, Dictionary()) << "it has no path any more";
}

}  // namespace
}  // namespace kmv::testing
