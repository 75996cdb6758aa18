// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::testing {
namespace {

using Interpreter = KMVDriveDictionaryInterpreter;

TEST(Interpreter, KnowsFAT32ByItsWholeText) {
  SimulatedPlatform::install();
  const Dictionary fat32{{"DAVolumeType", "MS-DOS (FAT32)"}};
  const Dictionary fat16{{"DAVolumeType", "MS-DOS (FAT16)"}};
  EXPECT_TRUE(Interpreter::doesDictionaryRepresentAFat32Volume(&fat32));
  EXPECT_FALSE(Interpreter::doesDictionaryRepresentAFat32Volume(&fat16));
  EXPECT_FALSE(Interpreter::doesDictionaryRepresentAFat32Volume(nullptr));
}

TEST(Interpreter, ComparesTheTwoPartsOfTheVersionOneByOne) {
  auto& machine = SimulatedPlatform::install();
  const Dictionary apfs{{"DAVolumeKind", "apfs"}};
  const Dictionary other{{"DAVolumeKind", "APFS"}};
  machine.setOperatingSystemVersion(10, 15);
  EXPECT_FALSE(Interpreter::doesDictionaryRepresentAnAppleFileSystemVolume(&apfs))
      << "the key is not known yet";
  KMVDiskArbiter::sharedInstance();
  struct Case {
    int major, minor;
    bool expected;
  };
  for (const Case& c : {Case{10, 15, true},
                        {10, 12, true},
                        {10, 11, false},
                        {11, 0, false},
                        {14, 12, true},
                        {9, 20, false}}) {
    machine.setOperatingSystemVersion(c.major, c.minor);
    EXPECT_EQ(Interpreter::doesDictionaryRepresentAnAppleFileSystemVolume(&apfs), c.expected)
        << c.major << "." << c.minor;
    EXPECT_FALSE(Interpreter::doesDictionaryRepresentAnAppleFileSystemVolume(&other));
    EXPECT_FALSE(Interpreter::doesDictionaryRepresentAnAppleFileSystemVolume(nullptr));
  }
}

TEST(Interpreter, FindsAContainerBelowTheServiceOfThatVeryName) {
  auto& machine = SimulatedPlatform::install();
  machine.addIOService("disk3", "disk9", {"AppleAPFSContainer"});
  machine.addIOService("disk3", "disk3", {"something"});
  machine.addIOService("disk4", "disk4", {"x", "AppleAPFSContainer", "y"});
  machine.addIOService("disk4", "disk4", {});
  const auto isContainer = [](Dictionary dictionary) {
    return Interpreter::diskDictionaryRepresentsAppleFileSystemContainer(&dictionary);
  };
  EXPECT_FALSE(isContainer({{"DAMediaBSDName", "disk3"}}));
  EXPECT_TRUE(isContainer({{"DAMediaBSDName", "disk4"}})) << "a later service does not take it back";
  EXPECT_EQ(machine.ioRegistryQuestions(), 2u);
  EXPECT_FALSE(isContainer({}));
  EXPECT_EQ(machine.ioRegistryQuestions(), 2u) << "not asked without a name";
}

TEST(Interpreter, ExemptsWhateverMentionsFuseAndOneOtherKind) {
  SimulatedPlatform::install();
  Dictionary fuse{{"DAVolumeKind", "macfuse"}};
  EXPECT_FALSE(Interpreter::dictionaryContainsExemptedVolumeKind(&fuse)) << "the key is not known yet";
  KMVDiskArbiter::sharedInstance();
  for (const auto& [kind, expected] :
       std::initializer_list<std::pair<const char*, bool>>{{"fuse", true},
                                                           {"osxfusefs", true},
                                                           {"fuse.codexvfs", true},
                                                           {"sanefs", true},
                                                           {"SaneFS", false},
                                                           {"exfat", false}}) {
    const Dictionary dictionary{{"DAVolumeKind", kind}};
    EXPECT_EQ(Interpreter::dictionaryContainsExemptedVolumeKind(&dictionary), expected) << kind;
  }
  EXPECT_FALSE(Interpreter::dictionaryContainsExemptedVolumeKind(nullptr));
}

}  // namespace
}  // namespace kmv::testing
