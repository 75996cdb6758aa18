// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

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
