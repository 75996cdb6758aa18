// SPDX-License-Identifier: MIT
// Whose drive is this? Asked of paths on real volumes.
#include <sys/mount.h>

#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

/// The mount point of the drive that the registry says holds `path`; empty for none.
std::string holderOf(const std::string& path) {
  const auto root = KMVDiskArbiter::sharedInstance().findRootDriveURLForPathURL(
      URL::fileURLWithPath(path, /*isDirectory=*/false));
  return root ? root->path() : "";
}

TEST_F(FuseStory, APathIsLookedUpThroughBindsAndOverMountsAndBesideAServerThatDoesNotAnswer) {
  const LoopDevice card = newVolume("ext4", "Card"), other = newVolume("ext4", "Other");
  const std::string a = space().folder("a"), b = space().folder("b b"), bound = space().folder("bound");
  mountVolume(card.node(), a, "ext4");
  mountVolume(other.node(), b, "ext4");
  std::filesystem::create_directory(a + "/clips");
  std::ofstream(a + "/clips/\xff\n.mov") << "x";
  bindMount(a + "/clips", bound);
  FuseServer stopped(space().folder("fuse"));
  stopped.stop();
  KMVDiskArbiter::sharedInstance().startArbiter();
  EXPECT_EQ(holderOf(bound + "/\xff\n.mov"), a) << "a bind belongs to the volume that it shows";
  EXPECT_EQ(holderOf(a + "/missing/branch/leaf"), a);
  EXPECT_EQ(holderOf(space().path("fuse")), space().path("fuse")) << "its own root needs no answer from it";
  EXPECT_EQ(holderOf("/proc/self/status"), "") << "no drive";
  mountVolume(other.node(), a, "ext4");  // over the other mount: the same file system a second time
  EXPECT_EQ(holderOf(a + "/x"), b);
}

TEST_F(VolumeStory, LookUpsFromTwoThreadsNeverNameAWrongDriveWhileVolumesComeAndGo) {
  const LoopDevice steady = newVolume("ext4", "Steady"), coming = newVolume("ext4", "Coming");
  const std::string stays = space().folder("stays"), passing = space().folder("passing");
  mountVolume(steady.node(), stays, "ext4");
  std::filesystem::create_directories(stays + "/deep/er");
  Observer observer(space().scratch());
  std::atomic<bool> done{false};
  std::atomic<int> wrong{0}, found{0};
  std::thread first([&] {
    while (!done) wrong += holderOf(stays + "/deep/er") != stays;
  });
  std::thread second([&] {
    while (!done) {
      const std::string holder = holderOf(passing + "/x");
      wrong += holder == stays;
      found += holder == passing;
    }
  });
  for (int round = 0; round < 12; ++round) {
    mountVolume(coming.node(), passing, "ext4");
    const int before = found;
    observer.waitFor([&] { return found > before; });
    // A look-up under way holds the volume for as long as its one system call takes, and no longer.
    while (::umount2(passing.c_str(), 0) != 0 && errno == EBUSY) std::this_thread::yield();
  }
  done = true;
  first.join();
  second.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(observer.waitFor([&] { return observer.all().back() == "removed passing"; }));
  observer.expectAlternation();
}

}  // namespace
}  // namespace kmv::integration
