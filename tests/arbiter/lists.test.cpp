// SPDX-License-Identifier: MIT
// What the two lists hold is compared with a plain model in random_events.test.cpp; here is what surrounds it.
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

}  // namespace
}  // namespace kmv::simulation
