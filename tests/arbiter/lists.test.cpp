// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::testing {
namespace {

const UUID kSomeUUID = *UUID::fromString("6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b60");

/// The registry, started, and volumes that the host tells it of.
class Lists : public RegistryTest {
 protected:
  Lists() { registry.start(); }

  static Dictionary mountedAt(const std::string& path, const DescriptionChanges& changes = {}) {
    Dictionary description{
        {"DAVolumePath", folder(path)}, {"DAVolumeMountable", true}, {"DAVolumeKind", "exfat"}};
    for (const auto& [key, value] : changes) {
      if (value) description.set(key, *value);
      if (!value) description.remove(key);
    }
    return description;
  }
  KMVDiskArbiter::Drive add(const Dictionary& description) {
    return arbiter.addDiskWithRepresentationToTheList(std::make_shared<const Dictionary>(description));
  }
};

TEST_F(Lists, AddingAVolumeTwiceGivesTheSameDriveAndOneAnnouncement) {
  const auto first = add(mountedAt("/Volumes/A"));
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(add(mountedAt("/Volumes//A")), first);
  EXPECT_EQ(news(), (Lines{"new /Volumes/A"}));
  EXPECT_EQ(registry.heard[0].object.drive(), first) << "announced as the live drive";
}

TEST_F(Lists, KeysAreStandardisedButTheDescriptionsOwnPathStays) {
  machine.createItem("/x");
  const URL raw = folder("/private/x");
  const auto drive = add(mountedAt("/private/x"));
  EXPECT_EQ(arbiter.presentDiskDictionaries()->find(folder("/x")), drive);
  EXPECT_EQ(drive->value("DAVolumePath"), Value(raw));
  EXPECT_TRUE(arbiter.volumeURLsCurrentlyMounted()->contains(folder("/x")));
  // By URL the standardised key is found and emptied; by UUID the raw path is not the key and the entry
  // stays: intended.
  drive->set(kDiskUUIDKey, "id");
  arbiter.removeDiskWithUUIDFromTheList("id");
  EXPECT_NE(arbiter.presentDiskDictionaries()->find(folder("/x")), nullptr);
  arbiter.removeDiskAtURLFromTheList(raw);
  EXPECT_EQ(arbiter.presentDiskDictionaries()->count(), 0u);
  EXPECT_EQ(arbiter.volumeURLsCurrentlyMounted()->count(), 0u);
}

TEST_F(Lists, TheRegistrysKeysFollowFromTheDescription) {
  struct Case {
    DescriptionChanges description;
    bool isRemovable;
  };
  const char *internal = "DADeviceInternal", *network = "DAVolumeNetwork", *ejectable = "DAMediaEjectable";
  const Case cases[] = {{{}, false},
                        {{{internal, true}, {network, false}, {ejectable, false}}, false},
                        {{{internal, false}}, true},
                        {{{internal, true}, {network, true}}, true},
                        {{{internal, true}, {ejectable, true}}, true},
                        {{{internal, false}, {network, false}, {ejectable, false}}, true},
                        {{{network, false}}, false},
                        {{{ejectable, true}}, true}};
  int number = 0;
  for (const Case& c : cases) {
    const auto drive = add(mountedAt("/Volumes/" + std::to_string(++number), c.description));
    EXPECT_EQ(drive->value(kDiskRemoveableKey), Value(c.isRemovable)) << number;
    EXPECT_EQ(drive->value(kDiskRemoveableKey)->kind(), Value::Kind::boolean);
    EXPECT_FALSE(drive->value(kDiskUUIDKey));
  }
  EXPECT_EQ(add(mountedAt("/Volumes/A", {{"DAVolumeUUID", kSomeUUID}}))->value(kDiskUUIDKey),
            Value("6D1F2C3A-8A52-5A0E-9A7B-0C5D3E1F4B60"));
}

TEST_F(Lists, TheMountableKeyDecidesWhateverItsValue) {
  EXPECT_EQ(add(mountedAt("/Volumes/A", {{"DAVolumeMountable", std::nullopt}})), nullptr);
  EXPECT_EQ(add({{"DAMediaWhole", true}}), nullptr);
  EXPECT_EQ(arbiter.presentDiskDictionaries()->count(), 0u);
  EXPECT_TRUE(arbiter.unmountedDictionaries().empty());
  EXPECT_NE(add(mountedAt("/Volumes/B", {{"DAVolumeMountable", false}})), nullptr);
  add(mountedAt("", {{"DAVolumeMountable", false}, {"DAVolumePath", std::nullopt}}));
  EXPECT_EQ(arbiter.unmountedDictionaries().size(), 1u);
}

TEST_F(Lists, ASilentKindIsRegisteredButNeverAnnounced) {
  const Dictionary optical = mountedAt("/Volumes/Optical", {{"DAVolumeKind", "odaudf"}});
  EXPECT_EQ(add(optical), nullptr);
  EXPECT_EQ(news(), Lines());
  EXPECT_NE(registry.drive("/Volumes/Optical"), nullptr);
  EXPECT_NE(add(optical), nullptr) << "known now, so returned";
  arbiter.removeDiskAtURLFromTheList(folder("/Volumes/Optical"));
  EXPECT_EQ(news(), (Lines{"removed /Volumes/Optical"}));
}

TEST_F(Lists, RemovalByURLIsAnnouncedLaterWithACopy) {
  const auto drive = add(mountedAt("/Volumes/A"));
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
  for (const char* path : {"/Volumes/B", "/Volumes/A"}) add(mountedAt(path, {{"DAVolumeUUID", kSomeUUID}}));
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

TEST_F(Lists, AnUnmountedDiskGoesByItsAppearanceTimeAndAMountedOneByItsPath) {
  const DiskId first = plugIn("A"), disk = plugIn("M", "/Volumes/M");
  plugIn("B");
  const DiskId share = machine.plugInPathVolume({.mountPoint = "/Volumes/S", .name = "S"});
  EXPECT_EQ(news().size(), 2u);
  machine.unplug(first);
  EXPECT_EQ(news(), Lines()) << "without a word";
  ASSERT_EQ(arbiter.unmountedDictionaries().size(), 1u);
  EXPECT_EQ(*arbiter.unmountedDictionaries()[0]->text("DAVolumeName"), "B");
  EXPECT_FALSE(arbiter.unmountedDictionaries()[0]->contains(kDiskRemoveableKey)) << "bare descriptions";
  machine.unplug(disk);
  machine.unmount(share);
  EXPECT_EQ(news().size(), 2u);
  EXPECT_EQ(arbiter.presentDiskDictionaries()->count(), 0u);
  EXPECT_EQ(arbiter.unmountedDictionaries().size(), 1u);
}

TEST_F(Lists, ExistenceIsAskedOnlyOfMountedRoots) {
  plugIn("A", "/Volumes/A");
  add(mountedAt("/Volumes/gone"));
  machine.createItem("/elsewhere");
  machine.runUntilIdle();
  EXPECT_TRUE(arbiter.rootVolumeURLStillExists(folder("/Volumes/./A")));
  EXPECT_FALSE(arbiter.rootVolumeURLStillExists(file("/Volumes/A"))) << "another URL";
  EXPECT_FALSE(arbiter.rootVolumeURLStillExists(folder("/elsewhere")));
  EXPECT_FALSE(arbiter.rootVolumeURLStillExists(folder("/Volumes/gone")));
}

}  // namespace
}  // namespace kmv::testing
