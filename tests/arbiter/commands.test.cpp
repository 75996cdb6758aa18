// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::testing {
namespace {

/// The registry's answers to commands, beside its other news.
class Commands : public RegistryTest {
 protected:
  Commands() {
    for (const auto name : {kDiskEjectionRejected, kDiskArbiterRenameSucceeded, kDiskArbiterRenameFailed}) {
      registrations_.push_back(
          NotificationCenter::defaultCenter().addObserver(name, [this](const auto& answer) {
            answers.push_back(answer);
            queues.push_back(machine.currentQueueLabel());
          }));
    }
    card = plugIn("Card", "/Volumes/Card");
    registry.start();
    registry.news();
  }

  bool unmount(const std::string& path) { return arbiter.unmountVolumeAtRootURL(folder(path)); }
  void rename(const std::string& path, const std::string& name) {
    arbiter.renameDriveWithRootURL(folder(path), name);
  }

  DiskId card{};
  std::vector<Notification> answers;
  Lines queues;

 private:
  std::vector<NotificationCenter::Registration> registrations_;
};

TEST_F(Commands, AnUnmountIsAnnouncedAsARemovalOnly) {
  EXPECT_TRUE(unmount("/Volumes/Card"));
  EXPECT_EQ(registry.news(), Lines{}) << "asked for, not done by the call";
  EXPECT_EQ(news(), Lines{"removed /Volumes/Card"});
  EXPECT_TRUE(answers.empty());
  EXPECT_EQ(arbiter.unmountedDictionaries().size(), 1u);
}

TEST_F(Commands, WhatIsNoVolumeRootIsNotAskedFor) {
  machine.createItem("/Volumes/Card/clip.mov");
  EXPECT_FALSE(unmount("/Volumes/Card/clip.mov"));
  EXPECT_FALSE(unmount("/Volumes"));
  rename("/Volumes/Card/clip.mov", "Other");
  arbiter.setDiskArbitrationSession(nullptr);
  EXPECT_FALSE(unmount("/Volumes/Card"));
  rename("/Volumes/Card", "Other");
  EXPECT_EQ(news(), Lines{});
  EXPECT_TRUE(answers.empty());
}

TEST_F(Commands, ARefusedUnmountTellsWhoRefusedAndWhy) {
  machine.refuseNextUnmount(dissent::kBusy, 4711);
  EXPECT_TRUE(unmount("/Volumes/Card"));
  machine.runUntilIdle();
  machine.refuseNextUnmount({});
  EXPECT_TRUE(unmount("/Volumes/Card"));
  machine.refuseNextUnmount(-7);
  EXPECT_TRUE(unmount("/Volumes/Card"));
  machine.unplug(card);  // before the platform answers
  machine.runUntilIdle();

  ASSERT_EQ(answers.size(), 3u);
  const URL unknown = *URL::fromString("Unknown");
  EXPECT_EQ(*answers[0].object.dictionary(),
            (Dictionary{{"pid", 4711}, {"status", dissent::kBusy}, {"volName", folder("/Volumes/Card")}}));
  EXPECT_EQ(*answers[1].object.dictionary(), (Dictionary{{"pid", 0}, {"status", 0}, {"volName", unknown}}));
  EXPECT_EQ(*answers[2].object.dictionary(), (Dictionary{{"pid", 0}, {"status", -7}, {"volName", unknown}}));
  EXPECT_EQ(answers[0].userInfo, nullptr);
  EXPECT_EQ(queues, Lines(3, arbiter.arbiterQueue()->label()));
}

TEST_F(Commands, ARenameIsAnsweredByTheRegistryAndAnnouncedAsAChange) {
  rename("/Volumes/Card", "Reel");
  EXPECT_EQ(news(), Lines{"changed /Volumes/Reel"});
  machine.refuseNextRename(dissent::kNotWritable);
  rename("/Volumes/Reel", "Other");
  machine.runUntilIdle();
  rename("/Volumes/Reel", "Other");
  machine.unplug(card);
  machine.runUntilIdle();

  ASSERT_EQ(answers.size(), 3u);
  EXPECT_EQ(answers[0].name, "kDiskArbiterRenameSucceeded");
  EXPECT_EQ(answers[0].object.object().get(), &arbiter);
  EXPECT_EQ(*answers[0].userInfo, (Dictionary{{"DAVolumePath", folder("/Volumes/Reel")}}));
  EXPECT_EQ(answers[1].name, "kDiskArbiterRenameFailed");
  EXPECT_EQ(answers[1].object.identity(), static_cast<Object*>(&arbiter));
  EXPECT_EQ(*answers[1].userInfo, (Dictionary{{"DAVolumePath", folder("/Volumes/Reel")}}));
  EXPECT_EQ(answers[2].name, "kDiskArbiterRenameSucceeded");
  EXPECT_EQ(*answers[2].userInfo, Dictionary()) << "it has no path any more";
}

}  // namespace
}  // namespace kmv::testing
