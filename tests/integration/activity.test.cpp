// SPDX-License-Identifier: MIT
// Real bytes, moved past the caches, beside what the kernel counts.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "support/Guarded.h"

namespace kmv::integration {
namespace {

struct Bytes {
  std::uint64_t read = 0;
  std::uint64_t written = 0;
  friend bool operator==(const Bytes&, const Bytes&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Bytes& bytes) {
    return out << bytes.read << " read, " << bytes.written << " written";
  }
};

/// What the kernel has counted of a disk.
Bytes countedOf(const std::string& disk) {
  std::ifstream table("/proc/diskstats");
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string number, name;
    std::uint64_t count[8];
    fields >> number >> number >> name;
    for (auto& one : count) fields >> one;
    if (name == disk) return {count[2] * 512, count[6] * 512};
  }
  return {};
}

/// What the monitor has told of each drive since this was made.
class Sums {
 public:
  Sums()
      : registration_(NotificationCenter::defaultCenter().addObserver(
            kDiskArbiterDriveActivityDidUpdateNotification, [sums = sums_](const Notification& notification) {
              sums.with([&](auto& all) {
                for (const auto& [url, activity] : driveActivities(notification)) {
                  Bytes& sum = all[url.path()];
                  if (const auto delta = activity->readDelta()) sum.read += bytesMoved(*delta).value_or(0);
                  if (const auto delta = activity->writeDelta())
                    sum.written += bytesMoved(*delta).value_or(0);
                }
              });
            })) {}
  Bytes of(const std::string& point) {
    return sums_.with([&](auto& all) { return all[point]; });
  }

 private:
  Guarded<std::map<std::string, Bytes>> sums_;
  NotificationCenter::Registration registration_;
};

/// Moves bytes to the medium and back, past the page cache.
void moveBytes(const std::string& file, int megabytes) {
  constexpr std::size_t kBlock = 1 << 20;
  void* block = nullptr;
  ASSERT_EQ(posix_memalign(&block, 4096, kBlock), 0);
  std::memset(block, 7, kBlock);
  const int descriptor = open(file.c_str(), O_CREAT | O_RDWR | O_DIRECT | O_CLOEXEC, 0600);
  ASSERT_GE(descriptor, 0) << file;
  for (int i = 0; i < megabytes; ++i) ASSERT_EQ(pwrite(descriptor, block, kBlock, i * 1L << 20), 1L << 20);
  ASSERT_EQ(fsync(descriptor), 0);
  for (int i = 0; i < megabytes; ++i) ASSERT_EQ(pread(descriptor, block, kBlock, i * 1L << 20), 1L << 20);
  close(descriptor);
  std::free(block);
}

class ActivityStory : public FuseStory {
 protected:
  /// Begins to measure without pauses, and lets the silent cycles pass.
  KMVDriveActivityMonitor& measure(Observer& observer) {
    auto& monitor = KMVDriveActivityMonitor::defaultMonitor();
    monitor.setRefreshFrequency(0);
    EXPECT_TRUE(observer.waitFor([&] { return monitor.loadCycles() > 6; }));
    return monitor;
  }
  std::string blankImage(const std::string& name) {
    const std::string image = space().path(name + ".img");
    std::ofstream(image).close();
    std::filesystem::resize_file(image, 140 << 20);
    return image;
  }
  static void nextCycles(Observer& observer) {
    const auto now = KMVDriveActivityMonitor::defaultMonitor().loadCycles();
    EXPECT_TRUE(
        observer.waitFor([&] { return KMVDriveActivityMonitor::defaultMonitor().loadCycles() > now + 2; }));
  }
};

TEST_F(ActivityStory, TheBytesToldAreThoseThatTheKernelCounted) {
  if (const std::string missing = missingForImages("btrfs"); !missing.empty()) GTEST_SKIP() << missing;
  const LoopDevice card = newVolume("ext4", "Card");
  const LoopDevice first(blankImage("first")), second(blankImage("second"));
  ASSERT_EQ(
      run({"mkfs.btrfs", "-q", "-f", "-d", "raid0", "-m", "raid0", first.node(), second.node()}).exitCode, 0);
  const std::string cardPoint = space().folder("card"), pool = space().folder("pool");
  mountVolume(card.node(), cardPoint, "ext4");
  mountVolume(first.node(), pool, "btrfs");
  ASSERT_EQ(run({"truncate", "-s", "0", cardPoint + "/empty"}).exitCode, 0);
  sync();
  Observer observer(space().scratch());
  ASSERT_TRUE(observer.waitFor([&] { return observer.present().size() == 2; }));
  Sums sums;
  measure(observer);
  nextCycles(observer);
  const Bytes cardBefore = countedOf(card.name()), firstBefore = countedOf(first.name()),
              secondBefore = countedOf(second.name());
  const Bytes cardTold = sums.of(cardPoint), poolTold = sums.of(pool);

  moveBytes(cardPoint + "/clip", 1);
  moveBytes(pool + "/clip", 16);
  sync();
  const auto moved = [](const Bytes& now, const Bytes& before) {
    return Bytes{now.read - before.read, now.written - before.written};
  };
  const auto poolMoved = [&] {
    const Bytes one = moved(countedOf(first.name()), firstBefore),
                other = moved(countedOf(second.name()), secondBefore);
    return Bytes{one.read + other.read, one.written + other.written};
  };
  observer.waitFor([&] {
    return moved(sums.of(cardPoint), cardTold) == moved(countedOf(card.name()), cardBefore) &&
           moved(sums.of(pool), poolTold) == poolMoved();
  });
  EXPECT_EQ(moved(sums.of(cardPoint), cardTold), moved(countedOf(card.name()), cardBefore));
  EXPECT_EQ(moved(sums.of(pool), poolTold), poolMoved());
  EXPECT_GE(sums.of(cardPoint).written, 1u << 20);
  EXPECT_GE(sums.of(pool).read, 16u << 20);
}

TEST_F(ActivityStory, TwoPartitionsOfADiskShowItsBytesAndAServerWhatWasReported) {
  constexpr long long kMegabyte = 1 << 20;
  const std::string shared = space().folder("hello");
  LoopDevice disk(blankImage("disk"));
  const std::string points[] = {space().folder("one"), space().folder("two")};
  for (int place : {1, 2}) {
    if (!disk.addPartition(place, (32 * place - 31) * kMegabyte, 32 * kMegabyte))
      GTEST_SKIP() << "needs a kernel with partitions on loop devices";
    const std::string node = disk.node() + "p" + std::to_string(place);
    ASSERT_TRUE(eventually([&] { return access(node.c_str(), R_OK) == 0; }));
    ASSERT_EQ(run({"mkfs.ext4", "-q", "-O", "^has_journal", node}).exitCode, 0);
    mountVolume(node, points[place - 1], "ext4");
  }
  FuseServer server(shared);
  sync();
  Observer observer(space().scratch());
  ASSERT_TRUE(observer.waitFor([&] { return observer.present().size() == 3; }));
  Sums sums;
  auto& monitor = measure(observer);
  const URL sharedRoot = URL::fileURLWithPath(shared, true);
  monitor.appBytesWereReadOnDrive(1, sharedRoot, "host");  // where counting begins
  nextCycles(observer);

  moveBytes(points[0] + "/clip", 4);
  {
    IOMeter meter(URL::fileURLWithPath(shared + "/hello", false), "host");
    for (int i = 0; i < 100; ++i) meter.wrote(1000);
    meter.read(23);
  }
  sync();
  observer.waitFor([&] {
    return sums.of(points[0]).read >= 4u << 20 && sums.of(shared) == Bytes{23, 100'000};
  });
  nextCycles(observer);
  EXPECT_EQ(sums.of(points[0]), sums.of(points[1]));
  EXPECT_GE(sums.of(points[0]).written, 4u << 20);
  EXPECT_EQ(sums.of(shared), (Bytes{23, 100'000}));
  for (const std::string& point : points) unmount(point);
}

}  // namespace
}  // namespace kmv::integration
