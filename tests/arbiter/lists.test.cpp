// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::testing {
namespace {

const UUID kSomeUUID = *UUID::fromString("6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b60");

DictionarySnapshot described(Dictionary description) {
  return std::make_shared<const Dictionary>(std::move(description));
}

URL directory(std::string_view path) {
  return URL::fileURLWithPath(path, true);
}

Dictionary mountedAt(std::string_view path) {
  return {{"DAVolumePath", directory(path)}, {"DAVolumeMountable", true}, {"DAVolumeKind", "exfat"}};
}

TEST(Lists, AddingAVolumeTwiceGivesTheSameDriveAndOneAnnouncement) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  const auto first = arbiter.addDiskWithRepresentationToTheList(described(mountedAt("/Volumes/A")));
  const auto again = arbiter.addDiskWithRepresentationToTheList(described(mountedAt("/Volumes//A")));
  registry.machine.runUntilIdle();
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(first, again);
  EXPECT_EQ(registry.news(), (Lines{"new /Volumes/A"}));
  EXPECT_EQ(registry.heard[0].object.drive(), first) << "announced as the live drive";
}

TEST(Lists, KeysAreStandardisedButTheDescriptionsOwnPathStays) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  registry.machine.createItem("/x");
  const URL raw = directory("/private/x");
  Dictionary description = mountedAt("/private/x");
  description.set("DAVolumePath", raw);
  const auto drive = arbiter.addDiskWithRepresentationToTheList(described(description));
  EXPECT_EQ(arbiter.presentDiskDictionaries()->find(directory("/x")), drive);
  EXPECT_EQ(drive->value("DAVolumePath"), Value(raw));
  EXPECT_TRUE(arbiter.volumeURLsCurrentlyMounted()->contains(directory("/x")));
  // By URL the standardised key is found and emptied; by UUID the raw path is not the key and the entry
  // stays: intended.
  drive->set(kDiskUUIDKey, "id");
  arbiter.removeDiskWithUUIDFromTheList("id");
  EXPECT_NE(arbiter.presentDiskDictionaries()->find(directory("/x")), nullptr);
  arbiter.removeDiskAtURLFromTheList(raw);
  EXPECT_EQ(arbiter.presentDiskDictionaries()->count(), 0u);
  EXPECT_EQ(arbiter.volumeURLsCurrentlyMounted()->count(), 0u);
}

TEST(Lists, RemovableIsAVerdictOverThreeKeys) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  struct Case {
    std::optional<bool> internal, network, ejectable;
    bool expected;
  };
  const Case cases[] = {{{}, {}, {}, false},    {true, false, false, false}, {false, {}, {}, true},
                        {true, true, {}, true}, {true, {}, true, true},      {false, false, false, true},
                        {{}, false, {}, false}, {{}, {}, true, true}};
  int number = 0;
  for (const Case& c : cases) {
    Dictionary description = mountedAt("/Volumes/" + std::to_string(++number));
    if (c.internal) description.set("DADeviceInternal", *c.internal);
    if (c.network) description.set("DAVolumeNetwork", *c.network);
    if (c.ejectable) description.set("DAMediaEjectable", *c.ejectable);
    const auto drive = arbiter.addDiskWithRepresentationToTheList(described(description));
    EXPECT_EQ(drive->value(kDiskRemoveableKey), Value(c.expected)) << number;
    EXPECT_EQ(drive->value(kDiskRemoveableKey)->kind(), Value::Kind::boolean);
  }
}

TEST(Lists, WhatLacksTheMountableKeyIsIgnoredAndItsValueDoesNotMatter) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  Dictionary keyless = mountedAt("/Volumes/A");
  keyless.remove("DAVolumeMountable");
  EXPECT_EQ(arbiter.addDiskWithRepresentationToTheList(described(keyless)), nullptr);
  EXPECT_EQ(arbiter.addDiskWithRepresentationToTheList(described({{"DAMediaWhole", true}})), nullptr);
  EXPECT_EQ(arbiter.presentDiskDictionaries()->count(), 0u);
  EXPECT_TRUE(arbiter.unmountedDictionaries().empty());

  Dictionary denied = mountedAt("/Volumes/B");
  denied.set("DAVolumeMountable", false);
  EXPECT_NE(arbiter.addDiskWithRepresentationToTheList(described(denied)), nullptr);
  denied.remove("DAVolumePath");
  arbiter.addDiskWithRepresentationToTheList(described(denied));
  EXPECT_EQ(arbiter.unmountedDictionaries().size(), 1u);
}

TEST(Lists, ASilentKindIsRegisteredButNeverAnnounced) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  Dictionary description = mountedAt("/Volumes/Optical");
  description.set("DAVolumeKind", "odaudf");
  EXPECT_EQ(arbiter.addDiskWithRepresentationToTheList(described(description)), nullptr);
  registry.machine.runUntilIdle();
  EXPECT_TRUE(registry.heard.empty());
  EXPECT_NE(registry.drive("/Volumes/Optical"), nullptr);
  EXPECT_NE(arbiter.addDiskWithRepresentationToTheList(described(description)), nullptr)
      << "known now, so returned";
  arbiter.removeDiskAtURLFromTheList(directory("/Volumes/Optical"));
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), (Lines{"removed /Volumes/Optical"}));
}

TEST(Lists, IdentityComesFromTheVolumeUUIDOnly) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  Dictionary withUUID = mountedAt("/Volumes/A");
  withUUID.set("DAVolumeUUID", kSomeUUID);
  const auto drive = arbiter.addDiskWithRepresentationToTheList(described(withUUID));
  EXPECT_EQ(drive->value(kDiskUUIDKey), Value("6D1F2C3A-8A52-5A0E-9A7B-0C5D3E1F4B60"));
  const auto anonymous = arbiter.addDiskWithRepresentationToTheList(described(mountedAt("/Volumes/B")));
  EXPECT_FALSE(anonymous->value(kDiskUUIDKey));
}

TEST(Lists, RemovalByURLIsAnnouncedLaterWithACopy) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  const auto drive = arbiter.addDiskWithRepresentationToTheList(described(mountedAt("/Volumes/A")));
  registry.machine.runUntilIdle();
  registry.news();
  arbiter.removeDiskAtURLFromTheList(directory("/Volumes/B"));
  arbiter.removeDiskAtURLFromTheList(directory("/Volumes/./A"));
  EXPECT_TRUE(registry.news().empty()) << "not before the main queue runs";
  drive->set(kDiskVolumeName, "later");
  registry.machine.runUntilIdle();
  ASSERT_EQ(registry.news(), (Lines{"removed /Volumes/A"}));
  EXPECT_EQ(registry.heard.back().queue, "main");
  EXPECT_EQ(registry.heard.back().object.drive(), nullptr);
  EXPECT_FALSE(registry.heard.back().object.dictionary()->contains(kDiskVolumeName));
}

TEST(Lists, RemovalByUUIDIsAnnouncedAtOnceWhileTheWritersLockIsHeld) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  for (const char* path : {"/Volumes/B", "/Volumes/A"}) {
    Dictionary description = mountedAt(path);
    description.set("DAVolumeUUID", kSomeUUID);
    arbiter.addDiskWithRepresentationToTheList(described(description));
  }
  registry.machine.runUntilIdle();
  registry.news();
  int unitsFree = -1;
  const auto observer = NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterRemovedDiskDetectedNotification,
      [&](const Notification&) { unitsFree = arbiter.readerWriterSemaphore()->count(); });
  arbiter.removeDiskWithUUIDFromTheList("6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b60");
  EXPECT_EQ(unitsFree, -1) << "letter case counts";
  arbiter.removeDiskWithUUIDFromTheList(kSomeUUID.string());
  EXPECT_EQ(unitsFree, 0);
  EXPECT_EQ(registry.news(), (Lines{"removed /Volumes/A"}))
      << "the first in order of the keys, and only that";
  EXPECT_EQ(registry.heard.back().queue, "");
  EXPECT_EQ(arbiter.readerWriterSemaphore()->count(), 8);
}

TEST(ListsDeathTest, AnObserverOfThatRemovalThatCallsAWriterStopsTheProcess) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  Dictionary description = mountedAt("/Volumes/A");
  description.set("DAVolumeUUID", kSomeUUID);
  arbiter.addDiskWithRepresentationToTheList(described(description));
  const auto observer = NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterRemovedDiskDetectedNotification,
      [&](const Notification&) { arbiter.removeDiskAtURLFromTheList(directory("/Volumes/A")); });
  EXPECT_DEATH(arbiter.removeDiskWithUUIDFromTheList(kSomeUUID.string()), "semaphore");
}

TEST(Lists, AnUnmountedDiskGoesByItsAppearanceTimeWithoutAWord) {
  Registry registry;
  const DiskId first = registry.machine.plugIn({.name = "A"});
  registry.machine.plugIn({.name = "B"});
  KMVDiskArbiter& arbiter = registry.start();
  EXPECT_EQ(arbiter.unmountedDictionaries().size(), 2u);
  registry.machine.unplug(first);
  registry.machine.runUntilIdle();
  ASSERT_EQ(arbiter.unmountedDictionaries().size(), 1u);
  EXPECT_EQ(*arbiter.unmountedDictionaries()[0]->text("DAVolumeName"), "B");
  EXPECT_FALSE(arbiter.unmountedDictionaries()[0]->contains(kDiskRemoveableKey)) << "bare descriptions";
  EXPECT_TRUE(registry.heard.empty());
}

TEST(Lists, ASurpriseRemovalAndAPathVolumeGoByTheirPath) {
  Registry registry;
  const DiskId disk = registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  const DiskId share = registry.machine.plugInPathVolume({.mountPoint = "/Volumes/S", .name = "S"});
  registry.start();
  registry.machine.unplug(disk);
  registry.machine.unmount(share);
  registry.machine.runUntilIdle();
  const auto lines = registry.news();
  EXPECT_EQ(lines.size(), 4u);
  EXPECT_EQ(registry.arbiter().presentDiskDictionaries()->count(), 0u);
  EXPECT_TRUE(registry.arbiter().unmountedDictionaries().empty());
}

TEST(Lists, ExistenceIsAskedOnlyOfMountedRoots) {
  Registry registry;
  registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  KMVDiskArbiter& arbiter = registry.start();
  registry.machine.createItem("/elsewhere");
  EXPECT_TRUE(arbiter.rootVolumeURLStillExists(directory("/Volumes/./A")));
  EXPECT_FALSE(arbiter.rootVolumeURLStillExists(URL::fileURLWithPath("/Volumes/A", false))) << "another URL";
  EXPECT_FALSE(arbiter.rootVolumeURLStillExists(directory("/elsewhere")));
}

}  // namespace
}  // namespace kmv::testing
