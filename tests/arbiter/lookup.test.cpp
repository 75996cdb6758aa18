// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::testing {
namespace {

URL directory(std::string_view path) {
  return URL::fileURLWithPath(path, true);
}
URL file(std::string_view path) {
  return URL::fileURLWithPath(path, false);
}

TEST(Lookup, APathBelongsToTheDriveThatHoldsItOrItsNearestFolder) {
  Registry registry;
  registry.machine.plugIn({.name = "Root", .mountPoint = "/"});
  registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  registry.machine.createItem("/Volumes/A/deep/down/here");
  registry.machine.createLink("/shortcut", "/Volumes/A/deep");
  KMVDiskArbiter& arbiter = registry.start();
  const auto a = registry.drive("/Volumes/A");
  EXPECT_EQ(arbiter.findRootMountDictionaryForURL(file("/Volumes/A/deep/down/here")), a);
  EXPECT_EQ(arbiter.findRootMountDictionaryForURL(file("/Volumes/A/missing/branch/leaf")), a);
  EXPECT_EQ(arbiter.findRootMountDictionaryForURL(file("/shortcut/down/here")), a);
  EXPECT_EQ(arbiter.findRootDriveURLForPathURL(file("/Volumes/nothing")), directory("/"));
  EXPECT_EQ(arbiter.findRootMountDictionaryForRootURL(directory("/Volumes/./A")), a);
  EXPECT_EQ(KMVDiskArbiter::volumeRootForPathAtURL(file("/Volumes/A/deep")), directory("/Volumes/A"));
  EXPECT_FALSE(KMVDiskArbiter::volumeRootForPathAtURL(file("/Volumes/A/missing"))) << "never climbs";
  EXPECT_FALSE(KMVDiskArbiter::volumeRootForPathAtURL(std::nullopt));
}

TEST(Lookup, AVolumeThatWasNotHeardOfIsRegisteredOnTheArbiterQueueAndAnnouncedOnce) {
  Registry registry;
  registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  registry.machine.plugIn({.name = "O", .mountPoint = "/Volumes/O", .kind = "odaudf"});
  KMVDiskArbiter& arbiter = registry.arbiter();
  registry.machine.holdEvents();
  arbiter.startArbiter();  // its events are still under way
  const auto drive = arbiter.findRootMountDictionaryForURL(file("/Volumes/A/x"));
  ASSERT_NE(drive, nullptr);
  EXPECT_EQ(drive->value(kDiskMountedPriorToApplicationInstance), Value(true));
  EXPECT_EQ(arbiter.findRootMountDictionaryForURL(file("/Volumes/O")), nullptr)
      << "registered, but not handed out";
  EXPECT_NE(arbiter.findRootMountDictionaryForURL(file("/Volumes/O")), nullptr) << "known by now";
  registry.machine.releaseEvents();
  registry.machine.runUntilIdle();
  EXPECT_EQ(registry.news(), (Lines{"new /Volumes/A"}));
  EXPECT_EQ(registry.drive("/Volumes/A"), drive);
}

TEST(Lookup, WhatHasNoVolumeRaisesInvalidURL) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  for (const auto& url :
       {std::optional<URL>(), URL::fromString("relative/path"), URL::fromString("http://host/x")}) {
    try {
      arbiter.findRootDriveURLForPathURL(url);
      FAIL() << "no exception";
    } catch (const Exception& exception) {
      EXPECT_EQ(exception.name(), "Invalid URL");
      EXPECT_EQ(std::string(exception.what()), "The url passed into " +
                                                   (url ? url->absoluteString() : "(null)") +
                                                   " does not seem to have a valid root url");
    }
  }
  std::string deep;
  for (int level = 0; level < 120; ++level) deep += "/x";
  EXPECT_THROW(arbiter.findRootDriveURLForPathURL(file(deep)), Exception) << "100 attempts, no more";
  EXPECT_EQ(arbiter.findRootMountDictionaryForURL(file(deep.substr(0, 2 * 99))), nullptr)
      << "the root, but no drive";
  EXPECT_FALSE(arbiter.uuidFromOrvaneFileForDriveRepresentedByURL(std::nullopt));
}

TEST(LookupDeathTest, FromTheArbiterQueueAnUnknownVolumeStopsInsteadOfHanging) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  registry.machine.holdEvents();
  registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  arbiter.arbiterQueue()->async([&] { arbiter.findRootMountDictionaryForURL(file("/Volumes/A")); });
  EXPECT_DEATH(registry.machine.runUntilIdle(), "drive.diskarbiter");
}

TEST(Lookup, TheMarkerFileIsReadWholeAndUntrimmed) {
  Registry registry;
  registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  KMVDiskArbiter& arbiter = registry.start();
  const std::string marker = "/Volumes/A/.OrvaneProductsUUID.orv";
  const auto uuid = [&] {
    return arbiter.uuidFromOrvaneFileForDriveRepresentedByURL(file("/Volumes/A/some/file"));
  };
  EXPECT_FALSE(uuid());
  registry.machine.writeFile(marker, "abc\n");
  EXPECT_EQ(uuid(), "abc\n");
  registry.machine.writeFile(marker, "\xe9");
  EXPECT_EQ(uuid(), "\xc3\xa9") << "each byte is the character of its number";
  registry.machine.writeFile(marker, "");
  EXPECT_FALSE(uuid());
  registry.machine.writeFile(marker, std::string(64 * 1024, 'x'));
  EXPECT_TRUE(uuid());
  registry.machine.writeFile(marker, std::string(64 * 1024 + 1, 'x'));
  EXPECT_FALSE(uuid());
}

TEST(Lookup, AnAssignedUUIDReplacesTheOldOneAndIsAnnouncedOnTheCallersThread) {
  Registry registry;
  registry.machine.plugIn({.name = "Root", .mountPoint = "/"});
  const DiskId disk = registry.machine.plugIn({.name = "A", .mountPoint = "/Volumes/A"});
  KMVDiskArbiter& arbiter = registry.start();
  registry.news();
  const std::string old = *registry.drive("/Volumes/A")->value(kDiskUUIDKey)->asText();
  EXPECT_EQ(arbiter.mountURLForDriveWithUUID(old), directory("/Volumes/A"));
  EXPECT_TRUE(arbiter.updateUUIDForDictionaryWithURL(directory("/Volumes/A"), "mine"));
  EXPECT_EQ(registry.news(), (Lines{"changed /Volumes/A"}));
  EXPECT_EQ(registry.heard.back().queue, "");
  EXPECT_EQ(arbiter.mountURLForDriveWithUUID("mine"), directory("/Volumes/A"));
  EXPECT_FALSE(arbiter.mountURLForDriveWithUUID(old));
  EXPECT_FALSE(arbiter.mountURLForDriveWithUUID("MINE"));
  EXPECT_FALSE(arbiter.updateUUIDForDictionaryWithURL(directory("/Volumes//A"), "x"))
      << "nothing is standardised";
  EXPECT_FALSE(arbiter.updateUUIDForDictionaryWithURL(std::nullopt, "x"));
  EXPECT_FALSE(arbiter.updateUUIDForDictionaryWithURL(directory("/Volumes/A"), std::nullopt));
  EXPECT_TRUE(registry.news().empty());
  EXPECT_EQ(arbiter.uuidForOperatingSystemDrive(), *registry.drive("/")->value(kDiskUUIDKey)->asText());
  registry.machine.unmount(disk);
  registry.machine.runUntilIdle();
  EXPECT_FALSE(arbiter.mountURLForDriveWithUUID("mine"));
}

TEST(Lookup, DetailsAreReadAnewWithoutTouchingTheLists) {
  Registry registry;
  const DiskId disk = registry.machine.plugIn({.name = "A", .mountPoint = "/media/A"});
  KMVDiskArbiter& arbiter = registry.start();
  registry.machine.rename(disk, "B");
  EXPECT_EQ(*arbiter.forceReadDetailsOfDriveMountedAtPath("/media/A")->text(kDiskVolumeName), "B");
  EXPECT_EQ(registry.drive("/media/A")->value(kDiskVolumeName), Value("A"));
  EXPECT_EQ(arbiter.forceReadDetailsOfDriveMountedAtPath("/media"), nullptr);
}

}  // namespace
}  // namespace kmv::testing
