// SPDX-License-Identifier: MIT
// The manager on the real queues, with readers on four threads while drives come and go.
#include "support/Testing.h"

namespace kmv {
namespace {

constexpr int kRounds = 300;
constexpr int kUnits = 3;

TEST(TopologyThreads, ReadersNeverMeetADriveUnderAnotherDisk) {
  KMVDiskArbiter::sharedInstance();
  auto& manager = KMVDriveWrapperManager::sharedInstance();
  std::atomic<int> writers{2};
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int writer = 0; writer < 2; ++writer) {
    threads.emplace_back([&] {
      for (int i = 0; i < kRounds; ++i) {
        std::vector<std::shared_ptr<DriveDictionary>> drives;
        for (int part = 0; part < 4; ++part) {
          const std::string name = "disk" + std::to_string(i % kUnits) + "s" + std::to_string(part);
          drives.push_back(std::make_shared<DriveDictionary>(
              Dictionary{{"DAMediaBSDName", name}, {"DAMediaBSDUnit", i % kUnits}}));
          wrong += !manager.addInformationAboutDiskDictionary(drives.back());
        }
      }
      --writers;
    });
  }
  for (int reader = 0; reader < 4; ++reader) {
    threads.emplace_back([&] {
      while (writers > 0) {
        for (const auto& [unit, disk] : manager.volumeWrappers()) {
          for (const auto& partition : disk->tableOfPartitions()->allObjects())
            wrong += partition->bsdUnit() != unit || partition->rootVolumeWrapper() != disk;
        }
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
  EXPECT_TRUE(manager.volumeWrappers().empty()) << "nobody holds a drive any more";
}

TEST(TopologyThreads, AWeakTableTakesAMemberOnceWhoeverAddsIt) {
  for (int round = 0; round < kRounds; ++round) {
    WeakTable<int> table;
    std::vector<std::shared_ptr<int>> members;
    for (int i = 0; i < 20; ++i) members.push_back(std::make_shared<int>(i));
    const auto addAll = [&] {
      for (const auto& member : members) table.add(member);
    };
    std::thread other(addAll);
    addAll();
    other.join();
    ASSERT_EQ(table.count(), members.size());
  }
}

}  // namespace
}  // namespace kmv
