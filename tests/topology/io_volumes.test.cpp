// SPDX-License-Identifier: MIT
#include <map>

#include "support/Registry.h"

namespace kmv::testing {
namespace {

URL folder(const std::string& path) {
  return URL::fileURLWithPath(path, true);
}

TEST(IOVolumes, TellTheMediumByTheKindFirstAndThenByTheModel) {
  static_assert(static_cast<int>(IOMediaKind::solidState) == 1 && static_cast<int>(IOMediaKind::fuse) == 2 &&
                static_cast<int>(IOMediaKind::generic) == 5);
  Registry registry;
  const auto plugIn = [&](const std::string& name, const std::string& kind, const std::string& model) {
    registry.machine.plugIn({.name = name, .mountPoint = "/Volumes/" + name, .kind = kind, .model = model});
  };
  plugIn("Fuse", "macFUSE", "Some SSD");
  plugIn("Fast", "exfat", "Quick sSd 970");
  plugIn("Plain", "exfat", "Spinning Disk");
  plugIn("Nameless", "exfat", "");
  KMVDiskArbiter& arbiter = registry.arbiter();
  int calls = 0;
  arbiter.enumerateIOVolumes([&](const IOVolume&, bool&) { ++calls; });
  EXPECT_EQ(calls, 0) << "nothing is present before the start";
  registry.start();

  std::map<std::string, IOMediaKind> kinds;
  arbiter.enumerateIOVolumes([&](const IOVolume& volume, bool&) {
    kinds[volume.volumeURL.path()] = volume.mediaKind;
    EXPECT_FALSE(volume.capacity || volume.availableCapacity || volume.preferredBlockSize);
  });
  EXPECT_EQ(kinds, (std::map<std::string, IOMediaKind>{{"/Volumes/Fuse", IOMediaKind::fuse},
                                                       {"/Volumes/Fast", IOMediaKind::solidState},
                                                       {"/Volumes/Plain", IOMediaKind::generic},
                                                       {"/Volumes/Nameless", IOMediaKind::generic}}));
  arbiter.enumerateIOVolumes([&](const IOVolume&, bool& stop) {
    ++calls;
    stop = true;
  });
  EXPECT_EQ(calls, 1);
  registry.drive("/Volumes/Plain")->remove(kDiskURLKey);
  calls = 0;
  arbiter.enumerateIOVolumes([&](const IOVolume&, bool&) { ++calls; });
  EXPECT_EQ(calls, 3) << "without a mount URL there is no volume";
}

TEST(IOVolumes, TheVolumeOfALocationHasTheRootThatWasFound) {
  Registry registry;
  registry.machine.plugIn({.name = "Card", .mountPoint = "/Volumes/Card", .model = "SSD"});
  registry.machine.createItem("/Volumes/Card/a/b.mov");
  KMVDiskArbiter& arbiter = registry.start();
  const auto volume = arbiter.rootVolume(URL::fileURLWithPath("/Volumes/Card/a/b.mov", false));
  ASSERT_TRUE(volume);
  EXPECT_EQ(volume->volumeURL, folder("/Volumes/Card"));
  EXPECT_EQ(volume->mediaKind, IOMediaKind::solidState);
  EXPECT_FALSE(arbiter.rootVolume(folder("/Volumes/Nowhere")));
  CrossAppFileManager::defaultManager().setStandardizedVolumeRootForFilePathURL(
      [](const URL&) { return URL::fromString("http://nowhere"); });
  EXPECT_FALSE(arbiter.rootVolume(folder("/Volumes/Card"))) << "what raises elsewhere is nothing here";
}

}  // namespace
}  // namespace kmv::testing
