// SPDX-License-Identifier: MIT
// What the two lists hold is compared with a plain model in random_events.test.cpp; here is what surrounds it.
#include "support/Memory.h"
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

const UUID kSomeUUID = *UUID::fromString("6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b60");

/// The registry, started, and volumes that the host tells it of.
class Lists : public RegistryTest {
 protected:
  Lists() { registry.start(); }

  KMVDiskArbiter::Drive add(const std::string& path, const std::string& kind = "exfat") {
    const Dictionary description{{"DAVolumePath", folder(path)},
                                 {"DAVolumeMountable", false},  // that it is there counts, not its value
                                 {"DAVolumeKind", kind},
                                 {"DAVolumeUUID", kSomeUUID},
                                 {"DADeviceInternal", false}};
    return arbiter.addDiskWithRepresentationToTheList(std::make_shared<const Dictionary>(description));
  }
};

TEST_F(Lists, AVolumeAddedTwiceIsOneLiveDriveUnderItsStandardisedPathWithItsOwnPathInside) {
  machine.createItem("/x");
  const auto drive = add("/private/x");
  ASSERT_NE(drive, nullptr);
  EXPECT_EQ(add("/x"), drive);
  EXPECT_EQ(news(), (Lines{"new /private/x"}));
  EXPECT_EQ(registry.heard[0].object.drive(), drive);
  EXPECT_EQ(arbiter.presentDiskDictionaries()->find(folder("/x")), drive);
  EXPECT_TRUE(arbiter.volumeURLsCurrentlyMounted()->contains(folder("/x")));
  EXPECT_EQ(drive->value(kDiskURLKey), Value(folder("/private/x")));
  EXPECT_EQ(drive->value(kDiskUUIDKey), Value("6D1F2C3A-8A52-5A0E-9A7B-0C5D3E1F4B60"));
  EXPECT_EQ(drive->value(kDiskRemoveableKey)->kind(), Value::Kind::boolean);
  EXPECT_EQ(add("/Volumes/Optical", "odaudf"), nullptr) << "silent";
  EXPECT_NE(add("/Volumes/Optical", "odaudf"), nullptr) << "known now, so returned";
}

TEST_F(Lists, RemovalByURLIsAnnouncedLaterWithACopy) {
  const auto drive = add("/Volumes/A");
  news();
  arbiter.removeDiskAtURLFromTheList(folder("/Volumes/B"));
  arbiter.removeDiskAtURLFromTheList(folder("/Volumes/./A"));
  EXPECT_TRUE(registry.news().empty()) << "not before the main queue runs";
  drive->set(kDiskVolumeName, "later");
  EXPECT_EQ(news(), (Lines{"removed /Volumes/A"}));
  EXPECT_EQ(registry.heard.back().queue, "main");
  EXPECT_EQ(registry.heard.back().object.drive(), nullptr);
  EXPECT_FALSE(registry.heard.back().object.dictionary()->contains(kDiskVolumeName));
}

TEST_F(Lists, RemovalByUUIDIsAnnouncedAtOnceWhileTheWritersLockIsHeld) {
  for (const char* path : {"/Volumes/B", "/Volumes/A"}) add(path);
  news();
  int unitsFree = -1;
  bool callsAWriter = false;
  const auto observer = NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterRemovedDiskDetectedNotification, [&](const Notification&) {
        unitsFree = arbiter.readerWriterSemaphore()->count();
        if (callsAWriter) arbiter.removeDiskAtURLFromTheList(folder("/Volumes/A"));
      });
  arbiter.removeDiskWithUUIDFromTheList("6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b60");
  EXPECT_EQ(unitsFree, -1) << "letter case counts";
  arbiter.removeDiskWithUUIDFromTheList(kSomeUUID.string());
  EXPECT_EQ(unitsFree, 0);
  EXPECT_EQ(registry.news(), (Lines{"removed /Volumes/A"}))
      << "the first in order of the keys, and only that";
  EXPECT_EQ(registry.heard.back().queue, "");
  EXPECT_EQ(arbiter.readerWriterSemaphore()->count(), 8);
  callsAWriter = true;
  EXPECT_DEATH(arbiter.removeDiskWithUUIDFromTheList(kSomeUUID.string()), "semaphore")
      << "instead of hanging";
}

TEST_F(Lists, ExistenceIsAskedOnlyOfMountedRoots) {
  plugIn("A", "/Volumes/A");
  add("/Volumes/gone");
  machine.createItem("/elsewhere");
  machine.runUntilIdle();
  EXPECT_TRUE(arbiter.rootVolumeURLStillExists(folder("/Volumes/./A")));
  EXPECT_FALSE(arbiter.rootVolumeURLStillExists(file("/Volumes/A"))) << "another URL";
  EXPECT_FALSE(arbiter.rootVolumeURLStillExists(folder("/elsewhere")));
  EXPECT_FALSE(arbiter.rootVolumeURLStillExists(folder("/Volumes/gone")));
}

using Changes = RegistryTest;

TEST_F(Changes, AVolumeThatMovesIsNewAgainAndARenamedOneKeepsItsDrive) {
  const DiskId disk = plugIn("A", "/Volumes/A");
  const auto wasMountedBefore = [&] {
    return registry.drive("/Volumes/A")->value(kDiskMountedPriorToApplicationInstance);
  };
  registry.start();
  EXPECT_EQ(wasMountedBefore(), Value(true));
  machine.unmount(disk);
  machine.mount(disk, "/Volumes/A");
  EXPECT_EQ(news(), (Lines{"new /Volumes/A", "removed /Volumes/A", "new /Volumes/A"}));
  EXPECT_EQ(wasMountedBefore(), Value(false)) << "only its first mount was";
  const auto drive = registry.drive("/Volumes/A");
  machine.rename(disk, "New Name");
  EXPECT_EQ(news(), (Lines{"changed /Volumes/New Name"}));
  EXPECT_EQ(registry.heard.back().object.drive(), drive);
  EXPECT_EQ(registry.heard.back().queue, arbiter.arbiterQueue()->label());
  EXPECT_EQ(registry.drive("/Volumes/New Name"), drive);
  // The same live drive under another key: found by its content, while its own path leads to nothing.
  arbiter.presentDiskDictionaries()->remove(folder("/Volumes/New Name"));
  arbiter.presentDiskDictionaries()->set(folder("/alias"), drive);
  machine.rename(disk, "Newer");
  EXPECT_EQ(news(), (Lines{"changed /Volumes/Newer"})) << "announced but not listed";
  EXPECT_EQ(registry.drive("/Volumes/Newer"), nullptr);
  EXPECT_EQ(registry.drive("/alias"), drive);
}

/// Notes what it is shown and adds a key.
class Annotator : public KMVDiskAdditionalInformationProtocol {
 public:
  Annotator(Registry& registry, std::string mark) : registry_(registry), mark_(std::move(mark)) {}

  bool addInformationAboutDiskDictionary(const std::shared_ptr<DriveDictionary>& drive) override {
    const URL path = *drive->value(kDiskURLKey)->asURL();
    const bool isListed = registry_.arbiter().presentDiskDictionaries()->find(path) == drive;
    shown.push_back(mark_ + " " + path.path() + " on " + registry_.machine.currentQueueLabel() +
                    (isListed ? " listed" : "") + (drive->value(kDiskUUIDKey) ? " identified" : "") +
                    " free " + std::to_string(registry_.arbiter().readerWriterSemaphore()->count()));
    drive->set("annotation", mark_);
    return false;  // ignored
  }
  static inline Lines shown;

 private:
  Registry& registry_;
  std::string mark_;
};

class UnmountedAnnotator : public Annotator {
 public:
  using Annotator::Annotator;
  bool addInformationAboutUnmountedDiskDictionary(const std::shared_ptr<DriveDictionary>& disk) override {
    shown.push_back("unmounted " + *disk->value(kDiskVolumeName)->asText());
    disk->set("annotation", true);
    return true;
  }
};

using Listeners = RegistryTest;

TEST_F(Listeners, SeeANewDriveListedIdentifiedAndUnlockedBeforeItIsAnnounced) {
  const auto first = std::make_shared<Annotator>(registry, "first"),
             second = std::make_shared<Annotator>(registry, "second");
  arbiter.addAdditionalInformationListener(first);
  arbiter.addAdditionalInformationListener(second);
  arbiter.addAdditionalInformationListener(first);  // held once
  const DiskId disk = plugIn("A", "/Volumes/A");
  registry.start();
  const std::string state = " /Volumes/A on " + arbiter.arbiterQueue()->label() + " listed identified free 8";
  EXPECT_EQ(Annotator::shown, (Lines{"first" + state, "second" + state}));
  EXPECT_EQ(registry.heard.at(0).object.drive()->value("annotation"), Value("second"));

  machine.rename(disk, "B");
  machine.unmount(disk);
  machine.runUntilIdle();
  EXPECT_EQ(Annotator::shown.size(), 2u) << "not for renames and removals";
  arbiter.removeAdditionalInformationListener(second);
  arbiter.arbiterQueue()->sync(
      [&] { arbiter.removeAdditionalInformationListener(second); });  // nothing to do
  machine.mount(disk, "/Volumes/B");
  machine.runUntilIdle();
  EXPECT_EQ(Annotator::shown.size(), 3u);
}

TEST_F(Listeners, SeeUnmountedDisksOnlyWhenTheyAskAndAnnotateACopy) {
  arbiter.addAdditionalInformationListener(std::make_shared<Annotator>(registry, "plain"));
  arbiter.addAdditionalInformationListener(std::make_shared<UnmountedAnnotator>(registry, "curious"));
  plugIn("A");
  registry.start();
  EXPECT_EQ(Annotator::shown, (Lines{"unmounted A"}));
  EXPECT_FALSE(arbiter.unmountedDictionaries().at(0)->contains("annotation"));
}

TEST(PresentDriveTable, FollowsTheContentOfADriveUnderEachOfItsKeysAsLongAsItHasOne) {
  const auto a = std::make_shared<DriveDictionary>(Dictionary{{"driveUUIDKey", "one"}});
  const URL first = URL::fileURLWithPath("/a", true), second = URL::fileURLWithPath("/a2", true);
  {
    PresentDriveTable table;
    table.set(first, a);
    table.set(second, a);
    a->set("driveUUIDKey", "two");
    EXPECT_EQ(table.firstWithUUID("one"), nullptr);
    EXPECT_EQ(table.firstWithUUID("two"), a);
    table.remove(first);
    a->set("driveUUIDKey", "three");
    EXPECT_EQ(table.firstWithUUID("three"), a) << "still there under its other key";
    EXPECT_TRUE(table.remove(second));
    EXPECT_FALSE(table.remove(second));
    EXPECT_EQ(table.firstWithUUID("three"), nullptr);
    table.set(first, a);
  }
  a->set("driveUUIDKey", "without the table");
}

TEST(PresentDriveTable, KeepsNothingOfChangesThatNobodyLooksUp) {
  const auto stays = std::make_shared<DriveDictionary>(), leaves = std::make_shared<DriveDictionary>();
  const URL first = URL::fileURLWithPath("/a", true), second = URL::fileURLWithPath("/b", true);
  PresentDriveTable table;
  table.set(first, stays);
  const std::size_t before = test::bytesAllocated();
  for (int i = 0; i < 20'000; ++i) {
    stays->set("driveUUIDKey", std::to_string(i));
    table.set(second, leaves);
    leaves->set("driveUUIDKey", "left");
    table.remove(second);
    PresentDriveTable().set(first, stays);
  }
  EXPECT_LT(test::bytesAllocated(), before + test::kBytesOfNoise);
  EXPECT_EQ(table.firstWithUUID("19999"), stays);
  EXPECT_EQ(table.firstWithUUID("left"), nullptr);
}

}  // namespace
}  // namespace kmv::simulation
