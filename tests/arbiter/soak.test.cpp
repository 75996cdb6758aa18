// SPDX-License-Identifier: MIT
// Rounds in which everything happens that a host and a machine can do and that could keep something, and after which
// everything is as before: memory must be flat. KMV_SOAK_ROUNDS in the environment makes it a long run by hand;
// docs/testing.md.
#include "support/Memory.h"
#include "support/Registry.h"
#include "support/Sanitizers.h"

namespace kmv::simulation {
namespace {

class Soak : public RegistryTest {
 protected:
  Soak() {
    machine.plugInPathVolume({.mountPoint = "/Volumes/Codex", .name = "Codex", .kind = "fuse.codexvfs"});
    machine.writeFile("/Volumes/Codex/.codexvfs", R"({"status":"built"})");
    machine.plugInPathVolume({.mountPoint = "/Volumes/Share", .name = "Share"});
    machine.writeFile("/Volumes/Share/.OrvaneProductsUUID.orv", "uuid");
    registry.start();
    monitor();
    monitor().listenForApplicationDriveSpeedUpdates();
  }

  static KMVDriveActivityMonitor& monitor() { return KMVDriveActivityMonitor::defaultMonitor(); }

  void round() {
    const DiskId card = plugIn("Card", "/Volumes/Card");
    settle();
    machine.writeFile("/Volumes/Card/kept.mov", "bytes");  // which goes with the card
    lookUp(file("/Volumes/Card/clip.mov"), folder("/Volumes/Card"));
    command();
    change(card);
    deliver(card);
    apfs();
    measure(card);
    codex();
    attributes();
    listen();
    machine.unplug(card);
    settle();
  }

 private:
  void settle() {
    machine.runUntilIdle();
    registry.news();
    registry.heard.clear();
  }

  void lookUp(const URL& clip, const URL& card) {
    arbiter.findRootMountDictionaryForURL(clip);
    EXPECT_EQ(arbiter.uuidFromOrvaneFileForDriveRepresentedByURL(file("/Volumes/Share/a.mov")), "uuid");
    EXPECT_TRUE(arbiter.updateUUIDForDictionaryWithURL(card, "assigned"));
    arbiter.mountURLForDriveWithUUID("assigned");
    arbiter.forceReadDetailsOfDriveMountedAtPath("/Volumes/Card");
    arbiter.rootVolume(card);
    EXPECT_THROW(arbiter.findRootMountDictionaryForURL(std::nullopt), Exception);
    hiddenMounts();
  }

  void command() {
    const URL card = folder("/Volumes/Card");
    machine.refuseNextRename(dissent::kBusy);
    for (const char* name : {"Refused", "Other"}) arbiter.renameDriveWithRootURL(card, name);
    settle();
    arbiter.renameDriveWithRootURL(folder("/Volumes/Other"), "Card");
    settle();
    machine.refuseNextUnmount(dissent::kBusy, 1);
    for (int attempt = 0; attempt < 2; ++attempt) EXPECT_TRUE(arbiter.unmountVolumeAtRootURL(card));
    settle();
    EXPECT_FALSE(arbiter.unmountVolumeAtRootURL(card));
  }

  void change(DiskId card) {
    machine.mount(card, "/Volumes/Card");
    settle();
    machine.move(card, "/Volumes/Elsewhere");
    settle();
    machine.changeDescriptionKey(card, "DAMediaEjectable", true);
    machine.unmount(card);
    settle();
    machine.unplug(plugIn("Second"));
    machine.unmount(machine.plugInPathVolume({.mountPoint = "/Volumes/Passing"}));
    const auto description = std::make_shared<const Dictionary>(machine.description(card));
    arbiter.addDiskWithRepresentationToTheList(description);
    arbiter.unmountedDiskDictionaries()->takeFirstWithAppearanceTime(
        description->doubleValue("DAAppearanceTime"));
    arbiter.removeDiskWithUUIDFromTheList("nobody");
    settle();
  }

  void deliver(DiskId card) {
    machine.holdEvents();
    machine.mount(card, "/Volumes/Card");
    const DiskId lost = plugIn("Lost", "/Volumes/Lost"), removed = plugIn("Removed", "/Volumes/Removed");
    machine.shufflePending();
    machine.lose(0);
    machine.deliverNext();
    machine.rescan();
    machine.releaseEvents();
    settle();
    for (const DiskId disk : {lost, removed}) {
      machine.loseNextEvent();
      machine.unplug(disk);
    }
    machine.rescan();
    settle();
    const DiskId vanishing = plugIn("Vanishing", "/Volumes/Vanishing");
    settle();
    machine.vanishWhileDescribed(vanishing);
    machine.changeDescriptionKey(vanishing, "DAMediaEjectable", true);
    settle();
    EXPECT_FALSE(machine.exists(vanishing));
    machine.failNextDescription();
    machine.unplug(plugIn("Bare", "/Volumes/Bare"));
    settle();
    machine.rescan();
    settle();
    EXPECT_EQ(arbiter.presentDiskDictionaries()->count(), 3u);
    EXPECT_TRUE(arbiter.unmountedDictionaries().empty());
  }

  /// A container that is inferred from its volume, and its own description.
  void apfs() {
    const DiskId volume = machine.plugIn({.name = "Data",
                                          .mountPoint = "/Volumes/Data",
                                          .bsdName = "disk7s1",
                                          .kind = "apfs",
                                          .content = "41504653-0000-11AA-AA11-00306543ECAC"});
    settle();
    for (const auto& [unit, disk] : KMVDriveWrapperManager::sharedInstance().volumeWrappers())
      disk->findExistingWrapperForBSDName("disk7s1");
    machine.unplug(volume);
    settle();
  }

  void measure(DiskId card) {
    const URL share = folder("/Volumes/Share");
    machine.setMediaPath(card, "/d/m");
    machine.setBlockStorageDriver("/d", DriverCounters{++bytes_, bytes_});
    { IOMeter(file("/Volumes/Share/new.mov"), "meter").wrote(1); }
    monitor().appBytesWereReadOnDrive(1, share, "copier");
    monitor().appBytesWereWrittenOnFile(1, file("/Volumes/Share/a.mov"), "copier");
    ApplicationIOTrackingDelegate::shared().publish(std::make_shared<URLActivityUpdate>(share, 1, 1));
    monitor().driveMonitoredByIOServices([](const auto&) {});
    monitor().enumerateFilePathsWhichCannotBeTrackedByIOServicesInList({share}, [](const auto&) {});
    machine.advance(std::chrono::seconds(1));
    monitor().stopMonitoringAppDriveIOUpdatesFromSender("copier");
    machine.removeBlockStorageDriver("/d");
    machine.failNextDriverLookup();
    machine.advance(std::chrono::seconds(1));
    settle();
  }

  void codex() {
    const URL root = folder("/Volumes/Codex");
    KMVDriveWrapperManager::sharedInstance().codexVFSWrapper(
        root, *registry.drive("/Volumes/Codex")->snapshot(), false, [&](const auto& wrapper) {
          wrapper->updateWrapper(true);
          wrapper->setSizeUpdated([](std::int64_t) {});
        });
    settle();
    const auto own = CodexVirtualFileSystemWrapper::initWithRoot(root);
    settle();
    EXPECT_TRUE(own->vfsIsReady());
    own->inspectVFSForLoadActivity();
    own->getFileSizeOfItem(root);
    settle();
  }

  void attributes() {
    using Gatherer = KMVExtendedAttributeGatherer;
    const std::string clip = "/Volumes/Share/a.mov";
    machine.writeFile(clip, "1234");
    std::optional<Error> error;
    Gatherer::setValueForLTFSExtendedAttributeAtLocation(clip, "ltfs.startblock", "1");
    Gatherer::findValueOfExtendedAttribute(5, clip);
    Gatherer::setExtendedCreationDateAttributesForFile("/nowhere", Date{0}, error);
    CrossAppFileManager::defaultManager().aggregateFileSize(folder("/Volumes/Share"), nullptr, 0);
    const auto reader = StreamFileReader::reader(file(clip));
    reader->openForReading([](bool) {});
    reader->beginByteSupplyCycle([](auto...) {}, [](const auto&) {});
  }

  void listen() {
    struct Listener : KMVDiskAdditionalInformationProtocol {
      bool addInformationAboutDiskDictionary(const std::shared_ptr<DriveDictionary>& drive) override {
        drive->set("heard", true);
        return true;
      }
    };
    const auto listener = std::make_shared<Listener>();
    arbiter.addAdditionalInformationListener(listener);
    const auto named = NotificationCenter::defaultCenter().addObserver("soak", [](const auto&) {});
    const auto all = NotificationCenter::defaultCenter().addObserver(std::nullopt, [](const auto&) {});
    NotificationCenter::defaultCenter().post({"soak", {}, nullptr});
    const DiskId disk = plugIn("Listened", "/Volumes/Listened");
    settle();
    machine.unplug(disk);
    settle();
    arbiter.removeAdditionalInformationListener(listener);
    const auto queue = makeSerialQueue("soak");
    queue->async([] {});
    mainQueue().after(std::chrono::milliseconds(1), [] {});
    machine.advance(std::chrono::milliseconds(1));
  }

  std::uint64_t bytes_ = 0;
};

TEST_F(Soak, MemoryStaysFlatWhateverHappensHoweverOften) {
  const char* const wanted = std::getenv("KMV_SOAK_ROUNDS");
  const int rounds = wanted != nullptr ? std::atoi(wanted) : test::stepsOnOneThread(500);
  for (int i = 0; i < 20; ++i) round();  // after which every cache and table has its size
  const std::size_t before = test::bytesAllocated();
  for (int i = 1; i <= rounds; ++i) {
    round();
    if (i % 50'000 == 0) std::printf("%d rounds: %zu bytes\n", i, test::bytesAllocated());
  }
  EXPECT_LT(test::bytesAllocated(), before + test::kBytesOfNoise);
}

}  // namespace
}  // namespace kmv::simulation
