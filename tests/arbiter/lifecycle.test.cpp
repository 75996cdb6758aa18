// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

using Lifecycle = RegistryTest;

TEST_F(Lifecycle, NothingIsKnownBeforeTheStartWhichReportsOnceWhatExists) {
  plugIn("A", "/Volumes/A");
  plugIn("B");
  machine.runUntilIdle();
  EXPECT_EQ(arbiter.presentDiskDictionaries(), nullptr);
  EXPECT_TRUE(arbiter.mountedDictionaries().empty());
  EXPECT_TRUE(arbiter.unmountedDictionaries().empty());
  EXPECT_EQ(arbiter.findRootMountDictionaryForRootURL(folder("/Volumes/A")), nullptr);
  EXPECT_EQ(arbiter.readerWriterSemaphore()->count(), 8);
  EXPECT_TRUE(arbiter.arbiterQueue()->label().ends_with(".drive.diskarbiter"));
  EXPECT_TRUE(arbiter.assetMutexQueue()->label().ends_with(".drive.diskarbiter.assetmutex"));
  arbiter.removeDiskAtURLFromTheList(folder("/Volumes/A"));
  arbiter.removeDiskWithUUIDFromTheList("nobody");
  EXPECT_EQ(news(), Lines());

  registry.start();
  arbiter.startArbiter();  // no second registration: the platform would refuse it
  EXPECT_EQ(news(), (Lines{"new /Volumes/A"}));
  EXPECT_EQ(registry.heard[0].queue, "main");
  EXPECT_EQ(arbiter.unmountedDictionaries().size(), 1u);
  EXPECT_EQ(arbiter.disksAlreadyMountedAtInit()->count(), 0u);
  KMVDiskArbiter second;
  second.startArbiter();  // the once-only block has run for the process: nothing happens
  EXPECT_EQ(second.presentDiskDictionaries(), nullptr);
  EXPECT_DEATH(arbiter.arbiterQueue()->sync([&] {
    arbiter.addAdditionalInformationListener(std::make_shared<KMVDriveWrapperManager>());
  }),
               "drive.diskarbiter")
      << "instead of hanging";

  const MountedDictionaries before = arbiter.mountedDictionaries();
  registry.drive("/Volumes/A")->set(kDiskVolumeName, "changed");
  EXPECT_EQ(*before.find(folder("/Volumes/A"))->text(kDiskVolumeName), "A") << "snapshots stay";
  EXPECT_EQ(*arbiter.mountedDictionaries().begin()->second->text(kDiskVolumeName), "changed");
}

TEST_F(Lifecycle, ASecondRegistryThatStartsFirstStopsTheProcess) {
  KMVDiskArbiter second;
  EXPECT_DEATH(second.startArbiter(), "KMVDiskArbiter.*NO");
}

TEST_F(Lifecycle, NullInARequiredPropertyStopsTheProcessWithItsName) {
  KMVDriveIOActivityTracker tracker;
  KMVRootDiskWrapper disk(1);
  KMVAPFSContainerWrapper container(nullptr, nullptr);
  const std::pair<const char*, std::function<void()>> setters[] = {
      {"unmountedDiskDictionaries", [&] { arbiter.setUnmountedDiskDictionaries(nullptr); }},
      {"arbiterQueue", [&] { arbiter.setArbiterQueue(nullptr); }},
      {"disksAlreadyMountedAtInit", [&] { arbiter.setDisksAlreadyMountedAtInit(nullptr); }},
      {"volumeURLsCurrentlyMounted", [&] { arbiter.setVolumeURLsCurrentlyMounted(nullptr); }},
      {"readerWriterSemaphore", [&] { arbiter.setReaderWriterSemaphore(nullptr); }},
      {"assetMutexQueue", [&] { arbiter.setAssetMutexQueue(nullptr); }},
      {"informationProtcolClasses", [&] { arbiter.setInformationProtcolClasses(nullptr); }},
      {"ioServiceTracker", [&] { KMVDriveActivityMonitor().setIoServiceTracker(nullptr); }},
      {"appTracker", [&] { KMVDriveActivityMonitor().setAppTracker(nullptr); }},
      {"driveAnalysisQueue", [&] { KMVDriveActivityMonitor().setDriveAnalysisQueue(nullptr); }},
      {"appIOLookup", [&] { KMVDriveActivityMonitor().setAppIOLookup(nullptr); }},
      {"cachedIOStatistics", [&] { tracker.setCachedIOStatistics(nullptr); }},
      {"activityLookup", [&] { tracker.setActivityLookup(nullptr); }},
      {"tableOfPartitions", [&] { disk.setTableOfPartitions(nullptr); }},
      {"tableOfChildAPFSVolumes", [&] { container.setTableOfChildAPFSVolumes(nullptr); }}};
  for (const auto& [name, set] : setters) EXPECT_DEATH(set(), std::string(": ") + name + " was set to null");
}

TEST_F(Lifecycle, NullInsideAListIsSkipped) {
  registry.start();
  arbiter.informationProtcolClasses()->add(nullptr);
  arbiter.unmountedDiskDictionaries()->append(nullptr);
  arbiter.diskDidChangeWithDictionary(nullptr, {"DAVolumePath"});
  arbiter.discoverUUIDForArbiterDictionary(nullptr);
  plugIn("A", "/Volumes/A");
  plugIn("B");
  EXPECT_EQ(news(), (Lines{"new /Volumes/A"}));
  EXPECT_EQ(arbiter.unmountedDictionaries().size(), 1u);
}

TEST_F(Lifecycle, ARegistryOutlivesItsCommands) {
  registry.start();
  plugIn("A", "/Volumes/A");
  auto own = std::make_unique<KMVDiskArbiter>();
  own->renameDriveWithRootURL(folder("/Volumes/A"), "B");
  EXPECT_DEATH(own = nullptr, "destroyed before the platform answered");
  machine.runUntilIdle();
  own->unmountVolumeAtRootURL(folder("/Volumes/B"));
  EXPECT_DEATH(own = nullptr, "destroyed before the platform answered");
  machine.runUntilIdle();
  own = nullptr;
}

TEST_F(Lifecycle, CallbacksWithoutContextOrDescriptionDoNothing) {
  struct Nameless : Disk {
    std::optional<Dictionary> copyDescription() const override { return std::nullopt; }
  } nameless;
  registry.start();
  const ChangedKeys keys{"DAVolumePath"};
  for (void* context : {static_cast<void*>(nullptr), static_cast<void*>(&arbiter)}) {
    for (Disk* disk : {static_cast<Disk*>(nullptr), static_cast<Disk*>(&nameless)}) {
      NewDiskAppeared(disk, context);
      DiskDisappeared(disk, context);
      DiskDescriptionChanged(disk, &keys, context);
    }
  }
  EXPECT_EQ(news(), Lines());
  EXPECT_TRUE(arbiter.unmountedDictionaries().empty());
}

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
