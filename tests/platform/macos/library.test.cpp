// SPDX-License-Identifier: MIT
// The whole library on macOS' raw events: what a host hears of and finds in the lists.
#include "platform/macos/MacLibrary.h"
#include "support/Testing.h"

namespace kmv::macos {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using namespace std::chrono_literals;

fake::Disk disk(const std::string& bsdName, const std::string& name, const std::string& point = {}) {
  return {.bsdName = bsdName, .mountPoint = point, .description = {{"DAVolumeName", name}}};
}

TEST_F(MacLibrary, WhatIsMountedAtTheStartIsAnnouncedAsOlderThanTheHost) {
  fake::attach(disk("disk1s1", "ROOT", "/"));
  fake::attach({.bsdName = "disk1", .description = {{"DAVolumeMountable", false}, {"DAMediaWhole", true}}});
  arbiter().startArbiter();
  EXPECT_THAT(news(), ElementsAre("new /"));
  const auto drive = arbiter().presentDiskDictionaries()->find(folder("/"));
  ASSERT_NE(drive, nullptr);
  EXPECT_EQ(drive->snapshot()->boolValue(kDiskMountedPriorToApplicationInstance), true);
  EXPECT_EQ(arbiter().unmountedDictionaries().size(), 1u) << "a whole disk has the key: its presence counts";
  start();
}

TEST_F(MacLibrary, ACardIsAttachedMountedRenamedUnmountedAndTakenOut) {
  start();
  fake::attach(disk("disk2s1", "CARD"));
  EXPECT_THAT(news(), IsEmpty());
  EXPECT_EQ(arbiter().unmountedDictionaries().size(), 1u);
  fake::mountDisk("disk2s1", "/Volumes/CARD");
  EXPECT_THAT(news(), ElementsAre("new /Volumes/CARD"));
  fake::renameVolume("disk2s1", "REEL");
  EXPECT_THAT(news(), ElementsAre("changed /Volumes/REEL"));
  EXPECT_THAT(mounted(), ElementsAre("/Volumes/REEL"));
  fake::mountDisk("disk2s1", "/Volumes/ELSEWHERE");
  EXPECT_THAT(news(), IsEmpty()) << "a new path alone is ignored, on purpose";
  EXPECT_THAT(mounted(), ElementsAre("/Volumes/REEL"));
  fake::mountDisk("disk2s1", "/Volumes/REEL");
  fake::unmountDisk("disk2s1");
  EXPECT_THAT(news(), ElementsAre("removed /Volumes/REEL"));
  EXPECT_EQ(arbiter().unmountedDictionaries().size(), 1u);
  fake::detach("disk2s1");
  EXPECT_THAT(news(), IsEmpty());
  EXPECT_THAT(arbiter().unmountedDictionaries(), IsEmpty());
}

TEST_F(MacLibrary, WhatIsPulledOutAndWhatComesOverTheNetworkGoesByItsPath) {
  start();
  fake::attach(disk("disk2s1", "CARD", "/Volumes/CARD"));
  for (const char* share : {"/Volumes/one", "/Volumes/two"})
    fake::attach({.mountPoint = share, .kind = "smbfs", .source = std::string("//host") + share});
  EXPECT_THAT(news(), ElementsAre("new /Volumes/CARD", "new /Volumes/one", "new /Volumes/two"));
  fake::detach("disk2s1");
  fake::unmountDisk("/Volumes/one");
  EXPECT_THAT(news(), ElementsAre("removed /Volumes/CARD", "removed /Volumes/one"));
  EXPECT_THAT(mounted(), ElementsAre("/Volumes/two"));
  fake::unmountDisk("/Volumes/two");
  EXPECT_THAT(news(), ElementsAre("removed /Volumes/two"));
}

TEST_F(MacLibrary, ARefusedUnmountIsToldAndAnAcceptedOneShowsAsItsEvent) {
  listen(kDiskEjectionRejected, "refused");
  listen(kDiskArbiterRenameSucceeded, "renamed");
  start();
  fake::attach(disk("disk2s1", "CARD", "/Volumes/CARD"));
  EXPECT_THAT(news(), ElementsAre("new /Volumes/CARD"));
  for (const auto where : {fake::Refusal::byDaemon, fake::Refusal::onTheSpot}) {
    fake::refuseNext(where, dissent::kBusy, 99);
    EXPECT_TRUE(arbiter().unmountVolumeAtRootURL(folder("/Volumes/CARD")));
    EXPECT_THAT(news(), ElementsAre("refused"));
  }
  arbiter().renameDriveWithRootURL(folder("/Volumes/CARD"), "REEL");
  EXPECT_THAT(news(), ElementsAre("changed /Volumes/REEL", "renamed"));
  EXPECT_TRUE(arbiter().unmountVolumeAtRootURL(folder("/Volumes/REEL")));
  EXPECT_THAT(news(), ElementsAre("removed /Volumes/REEL"));
  EXPECT_FALSE(arbiter().unmountVolumeAtRootURL(folder("/Volumes/REEL")));
}

}  // namespace
}  // namespace kmv::macos
