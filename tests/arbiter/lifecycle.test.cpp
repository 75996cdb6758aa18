// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

using Lifecycle = RegistryTest;

TEST(LifecycleOfKeys, AreEmptyUntilTheRegistryIsAskedForAndFilledOnEveryCall) {
  SimulatedPlatform::install();
  const std::pair<KeyVariable*, const char*> keys[] = {{&kDAVolumeKindKey, "DAVolumeKind"},
                                                       {&kDAMediaBSDName, "DAMediaBSDName"},
                                                       {&kDAMediaBSDUnit, "DAMediaBSDUnit"},
                                                       {&kDAMediaContentKey, "DAMediaContent"}};
  for (const auto& [key, text] : keys) EXPECT_FALSE(key->value()) << text;
  for (int call = 0; call < 2; ++call) {
    KMVDiskArbiter::sharedInstance();
    for (const auto& [key, text] : keys) {
      EXPECT_EQ(key->value(), text);
      key->assign("spoilt");
    }
  }
}

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

}  // namespace
}  // namespace kmv::simulation
