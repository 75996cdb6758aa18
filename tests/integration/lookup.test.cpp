// SPDX-License-Identifier: MIT
// Whose drive is this? Asked of paths on real volumes.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <string>
#include <thread>

#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"

namespace kmv::integration {
namespace {

using nlohmann::json;

/// The mount point of the drive that the registry says holds `path`; empty for none.
std::string holderOf(const std::string& path) {
  const auto root = KMVDiskArbiter::sharedInstance().findRootDriveURLForPathURL(
      URL::fileURLWithPath(path, /*isDirectory=*/false));
  return root ? root->path() : "";
}

/// The same as kmvdrive says it.
std::string whereIs(const std::string& path) {
  const Ran where = run({KMVDRIVE_PROGRAM, "where", "--json", path});
  EXPECT_EQ(where.exitCode, where.output.empty() ? 3 : 0);
  return where.output.empty() ? "" : json::parse(where.output).at("path").get<std::string>();
}

TEST_F(FuseStory, EveryPathBelongsToTheDriveThatReallyHoldsIt) {
  const LoopDevice card = newVolume("ext4", "Card"), other = newVolume("ext4", "Other");
  const std::string a = space().folder("a"), b = space().folder("b b"), bound = space().folder("bound");
  mountVolume(card.node(), a, "ext4");
  mountVolume(other.node(), b, "ext4");
  std::filesystem::create_directories(a + "/clips/day 1");
  std::ofstream(a + "/clips/day 1/\xff\n.mov") << "x";
  std::filesystem::create_directory_symlink(b, a + "/to b");
  std::ofstream(b + "/x") << "x";
  bindMount(a + "/clips", bound);
  FuseServer stopped(space().folder("fuse"));
  stopped.stop();

  KMVDiskArbiter::sharedInstance().startArbiter();
  for (const auto& ask : {holderOf, whereIs}) {
    EXPECT_EQ(ask(a + "/clips/day 1/\xff\n.mov"), a);
    EXPECT_EQ(ask(a + "/clips/missing leaf"), a);
    EXPECT_EQ(ask(a + "/missing/branch/leaf"), a);
    EXPECT_EQ(ask(a + "/to b/x"), b);
    EXPECT_EQ(ask(bound + "/day 1"), a) << "a bind belongs to the volume that it shows";
    EXPECT_EQ(ask(a), a);
    EXPECT_EQ(ask(b + "/x"), b) << "beside a server that does not answer";
    EXPECT_EQ(ask(space().path("fuse")), space().path("fuse")) << "its own root needs no answer from it";
    EXPECT_EQ(ask("/proc/self/status"), "") << "no drive";
  }
  mountVolume(other.node(), a, "ext4");  // over the other mount: the same file system a second time
  EXPECT_EQ(holderOf(a + "/x"), b);
  unmount(a);
  EXPECT_EQ(holderOf(a + "/clips"), a);
  EXPECT_EQ(run({KMVDRIVE_PROGRAM, "where", ""}).exitCode, 3);
  ASSERT_EQ(::chdir(b.c_str()), 0);
  EXPECT_EQ(whereIs("x"), b);
  EXPECT_EQ(whereIs("../a/clips"), a);
  ASSERT_EQ(::chdir("/"), 0);
}

TEST_F(VolumeStory, AHostileMarkerFileIsNoMarker) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card"), marker = point + "/.OrvaneProductsUUID.orv";
  mountVolume(card.node(), point, "ext4");
  KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  arbiter.startArbiter();
  const auto uuid = [&] {
    return arbiter.uuidFromOrvaneFileForDriveRepresentedByURL(
        URL::fileURLWithPath(point + "/clip", /*isDirectory=*/false));
  };
  std::ofstream(marker) << "abc\n";
  EXPECT_EQ(uuid(), "abc\n");
  ::unlink(marker.c_str());
  ASSERT_EQ(::mkfifo(marker.c_str(), 0600), 0);
  EXPECT_FALSE(uuid()) << "a pipe without a writer";
  ::unlink(marker.c_str());
  ASSERT_EQ(::mknod(marker.c_str(), S_IFCHR | 0600, makedev(1, 5)), 0);
  EXPECT_FALSE(uuid()) << "a device that never ends";
  ::unlink(marker.c_str());
  ASSERT_EQ(::symlink("/etc/hostname", marker.c_str()), 0);
  EXPECT_FALSE(uuid()) << "a link out of the volume";
  ::unlink(marker.c_str());
  std::ofstream(marker) << "";
  ASSERT_EQ(::truncate(marker.c_str(), 10LL << 30), 0);
  EXPECT_FALSE(uuid()) << "ten gigabytes of nothing";
  EXPECT_EQ(::umount2(point.c_str(), 0), 0) << "and nothing of it stays open";
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
  for (int round = 0; round < 40; ++round) {
    mountVolume(coming.node(), passing, "ext4");
    const int before = found;
    KMVDiskArbiter::sharedInstance().updateUUIDForDictionaryWithURL(URL::fileURLWithPath(stays, true),
                                                                    std::to_string(round));
    observer.waitFor([&] { return found > before; });
    // A look-up under way holds the volume for as long as its one system call takes, and no longer.
    while (::umount2(passing.c_str(), 0) != 0 && errno == EBUSY) std::this_thread::yield();
  }
  done = true;
  first.join();
  second.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(observer.waitFor([&] { return observer.all().back() == "removed passing"; }));
  int balance = 0;
  for (const std::string& line : observer.all()) {
    if (line == "added passing") ++balance;
    if (line == "removed passing") --balance;
    EXPECT_TRUE(balance == 0 || balance == 1) << "announced twice";
  }
  EXPECT_EQ(balance, 0);
}

}  // namespace
}  // namespace kmv::integration
