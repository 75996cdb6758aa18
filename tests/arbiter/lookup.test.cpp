// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

using Lookup = RegistryTest;

TEST_F(Lookup, APathBelongsToTheDriveThatHoldsItOrItsNearestFolder) {
  plugIn("Root", "/");
  plugIn("A", "/Volumes/A");
  machine.createItem("/Volumes/A/deep/down/here");
  machine.createLink("/shortcut", "/Volumes/A/deep");
  registry.start();
  const auto a = registry.drive("/Volumes/A");
  for (const char* path :
       {"/Volumes/A", "/Volumes/A/deep/down/here", "/Volumes/A/missing/branch/leaf", "/shortcut/down/here"})
    EXPECT_EQ(arbiter.findRootMountDictionaryForURL(file(path)), a) << path;
  EXPECT_EQ(arbiter.findRootDriveURLForPathURL(file("/Volumes/nothing")), folder("/"));
  EXPECT_EQ(arbiter.findRootMountDictionaryForRootURL(folder("/Volumes/./A")), a);
  EXPECT_EQ(KMVDiskArbiter::volumeRootForPathAtURL(file("/Volumes/A/deep")), folder("/Volumes/A"));
  EXPECT_FALSE(KMVDiskArbiter::volumeRootForPathAtURL(file("/Volumes/A/missing"))) << "never climbs";
  EXPECT_FALSE(KMVDiskArbiter::volumeRootForPathAtURL(std::nullopt));
}

TEST_F(Lookup, AVolumeThatWasNotHeardOfIsRegisteredOnTheArbiterQueueAndAnnouncedOnce) {
  plugIn("A", "/Volumes/A");
  machine.plugIn({.name = "O", .mountPoint = "/Volumes/O", .kind = "odaudf"});
  machine.holdEvents();
  arbiter.startArbiter();  // its events are still under way
  const auto drive = arbiter.findRootMountDictionaryForURL(file("/Volumes/A/x"));
  ASSERT_NE(drive, nullptr);
  EXPECT_EQ(drive->value(kDiskMountedPriorToApplicationInstance), Value(true));
  EXPECT_EQ(arbiter.findRootMountDictionaryForURL(file("/Volumes/O")), nullptr)
      << "registered, not handed out";
  EXPECT_NE(arbiter.findRootMountDictionaryForURL(file("/Volumes/O")), nullptr) << "known by now";
  machine.releaseEvents();
  EXPECT_EQ(news(), (Lines{"new /Volumes/A"}));
  EXPECT_EQ(registry.drive("/Volumes/A"), drive);
  machine.holdEvents();
  plugIn("B", "/Volumes/B");
  EXPECT_DEATH(
      arbiter.arbiterQueue()->sync([&] { arbiter.findRootMountDictionaryForURL(file("/Volumes/B")); }),
      "drive.diskarbiter")
      << "instead of hanging";
}

TEST_F(Lookup, WhatHasNoVolumeRaisesInvalidURL) {
  registry.start();
  for (const auto& url :
       {std::optional<URL>(), URL::fromString("relative"), URL::fromString("http://host/x")}) {
    const std::string text = url ? url->absoluteString() : "(null)";
    try {
      arbiter.findRootDriveURLForPathURL(url);
      FAIL() << "no exception for " << text;
    } catch (const Exception& raised) {
      EXPECT_EQ(raised.name() + ": " + raised.what(),
                "Invalid URL: The url passed into " + text + " does not seem to have a valid root url");
    }
  }
  std::string deep;
  for (int level = 0; level < 100; ++level) deep += "/x";
  EXPECT_THROW(arbiter.findRootDriveURLForPathURL(file(deep)), Exception) << "100 attempts, no more";
  EXPECT_EQ(arbiter.findRootMountDictionaryForURL(file(deep.substr(2))), nullptr) << "the root, but no drive";
  EXPECT_FALSE(arbiter.uuidFromOrvaneFileForDriveRepresentedByURL(std::nullopt));
}

TEST_F(Lookup, TheMarkerFileIsReadWholeAndUntrimmed) {
  plugIn("A", "/Volumes/A");
  registry.start();
  const auto uuid = [&] {
    return arbiter.uuidFromOrvaneFileForDriveRepresentedByURL(file("/Volumes/A/some/file"));
  };
  EXPECT_FALSE(uuid());
  const std::string largest(64 * 1024, 'x');
  const std::pair<std::string, std::optional<std::string>> cases[] = {
      {"abc\n", "abc\n"},
      {"\x7f\x80\xe9", "\x7f\xc2\x80\xc3\xa9"},  // each byte is the character of its number
      {"", std::nullopt},
      {largest, largest},
      {largest + "x", std::nullopt}};
  for (const auto& [bytes, expected] : cases) {
    machine.writeFile("/Volumes/A/.OrvaneProductsUUID.orv", bytes);
    EXPECT_EQ(uuid(), expected);
  }
}

TEST_F(Lookup, AnAssignedUUIDReplacesTheOldOneAndIsAnnouncedOnTheCallersThread) {
  plugIn("Root", "/");
  const DiskId disk = plugIn("A", "/Volumes/A");
  registry.start();
  registry.news();
  const std::string old = *registry.drive("/Volumes/A")->value(kDiskUUIDKey)->asText();
  EXPECT_EQ(arbiter.mountURLForDriveWithUUID(old), folder("/Volumes/A"));
  EXPECT_TRUE(arbiter.updateUUIDForDictionaryWithURL(folder("/Volumes/A"), "mine"));
  EXPECT_EQ(registry.news(), (Lines{"changed /Volumes/A"}));
  EXPECT_EQ(registry.heard.back().queue, "");
  EXPECT_EQ(arbiter.mountURLForDriveWithUUID("mine"), folder("/Volumes/A"));
  EXPECT_FALSE(arbiter.mountURLForDriveWithUUID(old));
  EXPECT_FALSE(arbiter.mountURLForDriveWithUUID("MINE"));
  EXPECT_FALSE(arbiter.updateUUIDForDictionaryWithURL(folder("/Volumes//A"), "x"))
      << "nothing is standardised";
  EXPECT_FALSE(arbiter.updateUUIDForDictionaryWithURL(std::nullopt, "x"));
  EXPECT_FALSE(arbiter.updateUUIDForDictionaryWithURL(folder("/Volumes/A"), std::nullopt));
  EXPECT_EQ(arbiter.uuidForOperatingSystemDrive(), *registry.drive("/")->value(kDiskUUIDKey)->asText());
  machine.rename(disk, "B");
  EXPECT_EQ(*arbiter.forceReadDetailsOfDriveMountedAtPath("/Volumes/B")->text(kDiskVolumeName), "B");
  EXPECT_NE(registry.drive("/Volumes/A"), nullptr) << "reading anew touches no list";
  EXPECT_EQ(arbiter.forceReadDetailsOfDriveMountedAtPath("/Volumes"), nullptr);
  machine.unmount(disk);
  EXPECT_EQ(news(), (Lines{"changed /Volumes/B", "removed /Volumes/B"}));
  EXPECT_FALSE(arbiter.mountURLForDriveWithUUID("mine"));
}

using Interpreter = KMVDriveDictionaryInterpreter;

class Interpreting : public ::testing::Test {
 protected:
  SimulatedPlatform& machine = SimulatedPlatform::install();
};

bool isAPFS(const Dictionary& dictionary) {
  return Interpreter::doesDictionaryRepresentAnAppleFileSystemVolume(&dictionary);
}
bool isContainer(const Dictionary& dictionary) {
  return Interpreter::diskDictionaryRepresentsAppleFileSystemContainer(&dictionary);
}

TEST_F(Interpreting, KnowsFileSystemsByTheirWholeTextsOnceTheRegistryHasNamedTheKey) {
  for (const auto& [type, expected] : {std::pair("MS-DOS (FAT32)", true), {"MS-DOS (FAT16)", false}}) {
    const Dictionary dictionary{{"DAVolumeType", type}};
    EXPECT_EQ(Interpreter::doesDictionaryRepresentAFat32Volume(&dictionary), expected) << type;
  }
  machine.setOperatingSystemVersion(10, 15);
  const Dictionary fuse{{"DAVolumeKind", "fuse"}};
  EXPECT_FALSE(isAPFS({{"DAVolumeKind", "apfs"}})) << "the key is not known yet";
  EXPECT_FALSE(Interpreter::dictionaryContainsExemptedVolumeKind(&fuse)) << "the key is not known yet";
  KMVDiskArbiter::sharedInstance();
  for (const auto& [kind, expected] : {std::pair("fuse", true),
                                       {"osxfusefs", true},
                                       {"sanefs", true},
                                       {"SaneFS", false},
                                       {"exfat", false}}) {
    const Dictionary dictionary{{"DAVolumeKind", kind}};
    EXPECT_EQ(Interpreter::dictionaryContainsExemptedVolumeKind(&dictionary), expected) << kind;
  }
  EXPECT_FALSE(isAPFS({{"DAVolumeKind", "APFS"}}));
  EXPECT_FALSE(Interpreter::doesDictionaryRepresentAFat32Volume(nullptr));
  EXPECT_FALSE(Interpreter::doesDictionaryRepresentAnAppleFileSystemVolume(nullptr));
  EXPECT_FALSE(Interpreter::dictionaryContainsExemptedVolumeKind(nullptr));
}

TEST_F(Interpreting, ComparesTheTwoPartsOfTheVersionOneByOne) {
  KMVDiskArbiter::sharedInstance();
  for (const auto& [major, minor, expected] :
       {std::tuple(10, 12, true), {10, 11, false}, {11, 0, false}, {14, 12, true}, {9, 20, false}}) {
    machine.setOperatingSystemVersion(major, minor);
    EXPECT_EQ(isAPFS({{"DAVolumeKind", "apfs"}}), expected) << major << "." << minor;
  }
}

TEST_F(Interpreting, FindsAContainerBelowTheServiceOfThatVeryName) {
  machine.addIOService("disk3", "disk9", {"AppleAPFSContainer"});
  machine.addIOService("disk3", "disk3", {"something"});
  machine.addIOService("disk4", "disk4", {"x", "AppleAPFSContainer", "y"});
  machine.addIOService("disk4", "disk4", {});
  EXPECT_FALSE(isContainer({{"DAMediaBSDName", "disk3"}}));
  EXPECT_TRUE(isContainer({{"DAMediaBSDName", "disk4"}})) << "a later service does not take it back";
  EXPECT_FALSE(isContainer({}));
  EXPECT_EQ(machine.ioRegistryQuestions(), 2u) << "not asked without a name";
}

}  // namespace
}  // namespace kmv::simulation
