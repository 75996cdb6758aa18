// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

/// The registry's answers to commands, beside its other news.
class Commands : public RegistryTest {
 protected:
  Commands() {
    for (const auto name : {kDiskEjectionRejected, kDiskArbiterRenameSucceeded, kDiskArbiterRenameFailed}) {
      registrations_.push_back(
          NotificationCenter::defaultCenter().addObserver(name, [this](const Notification& answer) {
            EXPECT_EQ(machine.currentQueueLabel(), arbiter.arbiterQueue()->label());
            answers_.push_back(answer.name == "kDiskEjectionRejected" ? rejection(answer) : rename(answer));
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
  /// What came since the last call.
  Lines answers() {
    machine.runUntilIdle();
    return std::exchange(answers_, {});
  }

  DiskId card{};

 private:
  static std::string rejection(const Notification& answer) {
    EXPECT_EQ(answer.userInfo, nullptr);
    std::string text;
    for (const auto& [key, value] : *answer.object.dictionary())
      text += key + " " + value.description() + " ";
    return text;
  }
  std::string rename(const Notification& answer) {
    EXPECT_EQ(answer.object.object().get(), &arbiter);
    const URL* path = answer.userInfo->url("DAVolumePath");
    EXPECT_EQ(answer.userInfo->size(), path == nullptr ? 0u : 1u);
    return answer.name + " " + (path == nullptr ? "" : path->absoluteString());
  }

  std::vector<NotificationCenter::Registration> registrations_;
  Lines answers_;
};

TEST_F(Commands, AnUnmountIsAnnouncedAsARemovalOnlyAndWhatIsNoVolumeRootIsNotAskedFor) {
  machine.createItem("/Volumes/Card/clip.mov");
  EXPECT_FALSE(unmount("/Volumes/Card/clip.mov"));
  EXPECT_FALSE(unmount("/Volumes"));
  rename("/Volumes/Card/clip.mov", "Other");
  EXPECT_EQ(news(), Lines{});
  EXPECT_TRUE(unmount("/Volumes/Card"));
  EXPECT_EQ(registry.news(), Lines{}) << "asked for, not done by the call";
  EXPECT_EQ(news(), Lines{"removed /Volumes/Card"});
  EXPECT_EQ(answers(), Lines{});
  machine.mount(card, "/Volumes/Card");
  machine.runUntilIdle();
  arbiter.setDiskArbitrationSession(nullptr);
  EXPECT_FALSE(unmount("/Volumes/Card"));
  rename("/Volumes/Card", "Other");
  EXPECT_EQ(news(), Lines{"new /Volumes/Card"});
}

TEST_F(Commands, ARefusedUnmountTellsWhoRefusedAndWhy) {
  machine.refuseNextUnmount(-5, 4711);
  EXPECT_TRUE(unmount("/Volumes/Card"));
  EXPECT_EQ(answers(), Lines{"pid 4711 status -5 volName file:///Volumes/Card/ "});
  machine.refuseNextUnmount({});
  EXPECT_TRUE(unmount("/Volumes/Card"));
  machine.unplug(card);  // before the platform answers
  EXPECT_EQ(answers(), Lines{"pid 0 status 0 volName Unknown "});
}

TEST_F(Commands, ARenameIsAnsweredByTheRegistryAndAnnouncedAsAChange) {
  rename("/Volumes/Card", "Reel");
  EXPECT_EQ(news(), Lines{"changed /Volumes/Reel"});
  machine.refuseNextRename(dissent::kNotWritable);
  rename("/Volumes/Reel", "Other");
  machine.runUntilIdle();
  rename("/Volumes/Reel", "Other");
  machine.unplug(card);
  EXPECT_EQ(answers(),
            (Lines{"kDiskArbiterRenameSucceeded file:///Volumes/Reel/",
                   "kDiskArbiterRenameFailed file:///Volumes/Reel/", "kDiskArbiterRenameSucceeded "}));
}

}  // namespace
}  // namespace kmv::simulation
