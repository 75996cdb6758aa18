// SPDX-License-Identifier: MIT
#include "support/Registry.h"
#include "support/Testing.h"

namespace kmv::simulation {
namespace {

using IOVolumes = RegistryTest;

TEST_F(IOVolumes, TellTheMediumByTheKindFirstAndThenByTheModel) {
  static_assert(static_cast<int>(IOMediaKind::solidState) == 1 && static_cast<int>(IOMediaKind::fuse) == 2 &&
                static_cast<int>(IOMediaKind::generic) == 5);
  struct Case {
    const char *path, *kind, *model;
    IOMediaKind medium;
  };
  const Case cases[] = {{"/Volumes/Fuse", "macFUSE", "Some SSD", IOMediaKind::fuse},
                        {"/Volumes/Fast", "exfat", "Quick sSd 970", IOMediaKind::solidState},
                        {"/Volumes/Plain", "exfat", "Spinning Disk", IOMediaKind::generic},
                        {"/Volumes/Nameless", "exfat", "", IOMediaKind::generic}};
  std::map<std::string, IOMediaKind> expected, found;
  for (const Case& c : cases) {
    machine.plugIn({.mountPoint = c.path, .kind = c.kind, .model = c.model});
    expected[c.path] = c.medium;
  }
  int calls = 0;
  const auto count = [&](const IOVolume&, bool& stop) { stop = ++calls == 3; };
  arbiter.enumerateIOVolumes(count);
  EXPECT_EQ(calls, 0) << "nothing is present before the start";
  registry.start();
  arbiter.enumerateIOVolumes([&](const IOVolume& volume, bool&) {
    found[volume.volumeURL.path()] = volume.mediaKind;
    EXPECT_FALSE(volume.capacity || volume.availableCapacity || volume.preferredBlockSize);
  });
  EXPECT_EQ(found, expected);
  arbiter.enumerateIOVolumes(count);
  EXPECT_EQ(calls, 3) << "stopped";
  registry.drive("/Volumes/Plain")->remove(kDiskURLKey);
  arbiter.enumerateIOVolumes(count);
  EXPECT_EQ(calls, 6) << "without a mount URL there is no volume";
}

TEST_F(IOVolumes, TheVolumeOfALocationHasTheRootThatWasFound) {
  machine.plugIn({.name = "Card", .mountPoint = "/Volumes/Card", .model = "SSD"});
  machine.createItem("/Volumes/Card/a/b.mov");
  registry.start();
  const auto volume = arbiter.rootVolume(file("/Volumes/Card/a/b.mov"));
  ASSERT_TRUE(volume);
  EXPECT_EQ(volume->volumeURL, folder("/Volumes/Card"));
  EXPECT_EQ(volume->mediaKind, IOMediaKind::solidState);
  EXPECT_FALSE(arbiter.rootVolume(folder("/Volumes/Nowhere")));
  CrossAppFileManager::defaultManager().setStandardizedVolumeRootForFilePathURL(
      [](const URL&) { return URL::fromString("http://nowhere"); });
  EXPECT_FALSE(arbiter.rootVolume(folder("/Volumes/Card"))) << "what raises elsewhere is nothing here";
}

}  // namespace
}  // namespace kmv::simulation
