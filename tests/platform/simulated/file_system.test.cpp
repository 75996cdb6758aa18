// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/Platform.h"

namespace kmv {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class SimulatedFiles : public ::testing::Test {
 protected:
  testing::SimulatedPlatform& machine = testing::SimulatedPlatform::install();
  Files& files = Platform::current().files();
  Volumes& volumes = Platform::current().volumes();
  bool exists(const std::string& path) { return files.itemKind(path) != ItemKind::none; }
};

URL folder(const char* path) {
  return URL::fileURLWithPath(path, true);
}

TEST_F(SimulatedFiles, ListsTheMountedVolumesInTheOrderOfTheirMountsAndFailsOnDemand) {
  machine.plugIn({.name = "System", .mountPoint = "/"});
  const auto card = machine.plugIn({.name = "CARD"});
  machine.plugInPathVolume({.mountPoint = "/Volumes/share"});
  machine.mount(card, "/Volumes/CARD");
  machine.addHiddenMount({"/proc", "proc", "kernel"});
  EXPECT_THAT(volumes.mountedVolumeURLs(),
              ElementsAre(folder("/"), folder("/Volumes/share"), folder("/Volumes/CARD")));
  machine.failNextMountedVolumeList();
  EXPECT_THAT(volumes.mountedVolumeURLs(), IsEmpty());
  machine.unmount(card);
  EXPECT_THAT(volumes.mountedVolumeURLs(), ElementsAre(folder("/"), folder("/Volumes/share")));
  ASSERT_EQ(volumes.hiddenMounts().size(), 1U);
  EXPECT_EQ(volumes.hiddenMounts()[0].path, "/proc");
}

TEST_F(SimulatedFiles, ItemsOnAVolumeComeAndGoWithIt) {
  const auto card = machine.plugIn({.name = "CARD", .mountPoint = "/Volumes/CARD"});
  machine.createItem("/Volumes/CARD/DCIM/clip.mov");
  EXPECT_TRUE(exists("/Volumes/CARD/DCIM"));
  machine.rename(card, "REEL");
  EXPECT_TRUE(exists("/Volumes/REEL/DCIM/clip.mov"));
  EXPECT_FALSE(exists("/Volumes/CARD/DCIM/clip.mov"));
  machine.unmount(card);
  EXPECT_FALSE(exists("/Volumes/REEL"));
  machine.mount(card, "/mnt");
  machine.removeItem("/mnt/DCIM");
  EXPECT_FALSE(exists("/mnt/DCIM/clip.mov"));
  EXPECT_TRUE(exists("/mnt"));
}

TEST_F(SimulatedFiles, FollowsLinksAndStripsThePlatformsAliases) {
  machine.plugIn({.name = "CARD", .mountPoint = "/private/tmp/card"});
  machine.createItem("/tmp/card/notes");
  machine.createLink("/home/loop", "loop");
  machine.createLink("/home/card", "../tmp/card/.");
  EXPECT_EQ(files.realPath("/home/card/notes"), "/private/tmp/card/notes");
  EXPECT_EQ(files.realPath("/home/card/.."), "/private/tmp");
  EXPECT_EQ(files.realPath("/home/loop/x"), std::nullopt);
  EXPECT_EQ(files.realPath("/nowhere/.."), std::nullopt);
  EXPECT_EQ(URLByStandardizingPath(folder("/private/tmp/card")), folder("/tmp/card"));
  EXPECT_EQ(URLByStandardizingPath(folder("/private/gone")), folder("/private/gone"));
}

}  // namespace
}  // namespace kmv
