// SPDX-License-Identifier: MIT
// What does it cost to file one drive under its disk, and to list all disks, when 10, 100 and 1,000 disks of
// 8 partitions are there? Beside it what a host would write by hand: a map from unit to a list of names,
// cleaned by walking all of it when a drive goes.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr std::int64_t kPartitions = 8;

std::shared_ptr<kmv::DriveDictionary> partition(std::int64_t unit, std::int64_t number) {
  return std::make_shared<kmv::DriveDictionary>(
      kmv::Dictionary{{"DAMediaBSDName", "disk" + std::to_string(unit) + "s" + std::to_string(number)},
                      {"DAMediaBSDUnit", unit},
                      {"DAVolumeKind", "exfat"},
                      {"DAVolumeName", "Card"},
                      {"DAMediaSize", 64'000'000'000}});
}

/// Every partition of so many disks, filed.
std::vector<std::shared_ptr<kmv::DriveDictionary>> fill(std::int64_t disks) {
  KMVDiskArbiter::sharedInstance();
  std::vector<std::shared_ptr<kmv::DriveDictionary>> drives;
  for (std::int64_t unit = 0; unit < disks; ++unit) {
    for (std::int64_t number = 1; number <= kPartitions; ++number) {
      drives.push_back(partition(unit, number));
      KMVDriveWrapperManager::sharedInstance().addInformationAboutDiskDictionary(drives.back());
    }
  }
  return drives;
}

void fileOneDrive(benchmark::State& state) {
  const auto drives = fill(state.range(0));
  auto& manager = KMVDriveWrapperManager::sharedInstance();
  for (auto _ : state) {
    const auto drive = partition(state.range(0) / 2, kPartitions + 1);
    manager.addInformationAboutDiskDictionary(drive);
  }
}

void fileOneDriveByHand(benchmark::State& state) {
  std::map<std::int64_t, std::vector<std::weak_ptr<kmv::DriveDictionary>>> disks;
  const auto drives = fill(state.range(0));
  for (const auto& drive : drives) disks[drive->value("DAMediaBSDUnit")->integerValue()].push_back(drive);
  for (auto _ : state) {
    auto drive = partition(state.range(0) / 2, kPartitions + 1);
    disks[drive->value("DAMediaBSDUnit")->integerValue()].push_back(drive);
    drive.reset();
    for (auto& [unit, list] : disks) std::erase_if(list, [](const auto& weak) { return weak.expired(); });
  }
}

void listTheDisks(benchmark::State& state) {
  const auto drives = fill(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(KMVDriveWrapperManager::sharedInstance().volumeWrappers());
}

}  // namespace

BENCHMARK(fileOneDrive)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(fileOneDriveByHand)->Arg(10)->Arg(100)->Arg(1000);
BENCHMARK(listTheDisks)->Arg(10)->Arg(100)->Arg(1000);
