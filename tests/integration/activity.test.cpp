// SPDX-License-Identifier: MIT
// Real bytes, moved past the caches, beside what the kernel counts.
#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "support/Guarded.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

using Bytes = std::pair<std::uint64_t, std::uint64_t>;  // read, written

/// What the kernel has counted of a disk.
Bytes countedOf(const std::string& disk) {
  std::ifstream file("/sys/class/block/" + disk + "/stat");
  std::uint64_t count[8] = {};
  for (auto& one : count) file >> one;
  return {count[2] * 512, count[6] * 512};
}

/// Moves bytes to the medium and back, past the page cache.
void moveBytes(const std::string& file, long blocks) {
  constexpr std::size_t kBlock = 1 << 16;
  void* const block = std::aligned_alloc(4096, kBlock);
  const int descriptor = open(file.c_str(), O_CREAT | O_RDWR | O_DIRECT | O_CLOEXEC, 0600);
  ASSERT_GE(descriptor, 0) << file;
  for (long i = 0; i < blocks; ++i) ASSERT_EQ(pwrite(descriptor, block, kBlock, i << 16), 1L << 16);
  for (long i = 0; i < blocks; ++i) ASSERT_EQ(pread(descriptor, block, kBlock, i << 16), 1L << 16);
  close(descriptor);
  std::free(block);
}

TEST_F(FuseStory, TheBytesToldAreThoseThatTheKernelCountedAndThoseOfAServerWhatWasReported) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card"), shared = space().folder("shared");
  mountVolume(card.node(), point, "ext4");
  FuseServer server(shared);
  sync();
  Observer observer(space().scratch());
  ASSERT_TRUE(observer.waitFor([&] { return observer.present().size() == 2; }));
  const Guarded<std::map<std::string, Bytes>> sums;
  const auto registration = NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterDriveActivityDidUpdateNotification, [sums](const Notification& notification) {
        sums.with([&](auto& all) {
          for (const auto& [url, activity] : driveActivities(notification)) {
            auto& [read, written] = all[url.path()];
            if (const auto delta = activity->readDelta()) read += bytesMoved(*delta).value_or(0);
            if (const auto delta = activity->writeDelta()) written += bytesMoved(*delta).value_or(0);
          }
        });
      });
  const auto toldOf = [&](const std::string& path) {
    return sums.with([&](auto& all) { return all[path]; });
  };
  auto& monitor = KMVDriveActivityMonitor::defaultMonitor();
  monitor.setRefreshFrequency(0);
  monitor.appBytesWereReadOnDrive(1, URL::fileURLWithPath(shared, true), "host");  // where counting begins
  ASSERT_TRUE(observer.waitFor([&] { return monitor.loadCycles() > 8; }));         // the first few are silent
  const auto since = [](const Bytes& now, const Bytes& before) {
    return Bytes{now.first - before.first, now.second - before.second};
  };
  const Bytes countedBefore = countedOf(card.name()), toldBefore = toldOf(point);
  moveBytes(point + "/clip", 8);
  {
    IOMeter meter(URL::fileURLWithPath(shared + "/file", false), "host");
    for (int i = 0; i < 100; ++i) meter.wrote(1000);
    meter.read(23);
  }
  sync();
  observer.waitFor([&] {
    const Bytes counted = since(countedOf(card.name()), countedBefore);
    return since(toldOf(point), toldBefore) == counted && counted.first > 0 && toldOf(shared).first > 0;
  });
  EXPECT_EQ(since(toldOf(point), toldBefore), since(countedOf(card.name()), countedBefore));
  EXPECT_GE(toldOf(point).first, 8u << 16);
  EXPECT_GE(toldOf(point).second, 8u << 16);
  EXPECT_EQ(toldOf(shared), (Bytes{23, 100'000}));
}

}  // namespace
}  // namespace kmv::integration
