// SPDX-License-Identifier: MIT
// What does one event cost the registry, and what a snapshot, when 10, 1,000 or 10,000 drives are there?
// Beside it what a host would write by hand: a vector of descriptions under a mutex, walked for each event
// and copied for a snapshot.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <mutex>
#include <string>
#include <vector>

namespace {

using kmv::Dictionary;
using kmv::DictionarySnapshot;
using kmv::URL;

Dictionary diskDescription(std::int64_t number) {
  kmv::UUID::Bytes uuid{};
  for (unsigned byte = 0; byte < 8; ++byte) uuid[byte] = static_cast<std::uint8_t>(number >> (8 * byte));
  uuid[15] = 1;
  return {{"DAVolumeMountable", true},
          {"DAVolumeKind", "ext4"},
          {"DAVolumeType", "ext4"},
          {"DAVolumeName", "Card " + std::to_string(number)},
          {"DAVolumeUUID", kmv::UUID(uuid)},
          {"DAVolumeNetwork", false},
          {"DAMediaBSDName", "sd" + std::to_string(number)},
          {"DAMediaBSDUnit", number},
          {"DAMediaContent", "0x83"},
          {"DAMediaEjectable", true},
          {"DAMediaRemovable", true},
          {"DAMediaSize", 64'000'000'000},
          {"DAMediaWhole", false},
          {"DADeviceInternal", false},
          {"DADeviceModel", "Card Reader"},
          {"DAAppearanceTime", 800'000'000.0 + static_cast<double>(number)}};
}

DictionarySnapshot described(std::int64_t number, bool mounted) {
  Dictionary description = diskDescription(number);
  if (mounted)
    description.set("DAVolumePath", URL::fileURLWithPath("/media/card " + std::to_string(number), true));
  return std::make_shared<const Dictionary>(std::move(description));
}

/// The shared registry with so many drives, and one observer as a host has it.
class Fixture {
 public:
  explicit Fixture(std::int64_t drives) {
    arbiter.setPresentDiskDictionaries(std::make_shared<kmv::PresentDriveTable>());
    for (std::int64_t i = 0; i < drives; ++i) arbiter.addDiskWithRepresentationToTheList(described(i, true));
    settle();
  }
  static void settle() {
    while (kmv::mainQueue().drain() != 0) {
    }
  }
  KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
};

void additionAndRemoval(benchmark::State& state) {
  Fixture registry(state.range(0));
  const auto card = described(state.range(0) / 2 + 1'000'000, true);
  const URL path = *card->url("DAVolumePath");
  for (auto _ : state) {
    registry.arbiter.addDiskWithRepresentationToTheList(card);
    registry.arbiter.removeDiskAtURLFromTheList(path);
    Fixture::settle();
  }
}

void mountAndUnmountOfAKnownDisk(benchmark::State& state) {
  Fixture registry(state.range(0));
  const auto mounted = described(1'000'000, true);
  const auto unmounted = described(1'000'000, false);
  const kmv::ChangedKeys keys{"DAVolumePath"};
  registry.arbiter.addDiskWithRepresentationToTheList(unmounted);
  for (auto _ : state) {
    registry.arbiter.diskDidChangeWithDictionary(mounted, keys);
    registry.arbiter.diskDidChangeWithDictionary(unmounted, keys);
    Fixture::settle();
  }
  registry.arbiter.unmountedDiskDictionaries()->takeFirstWithAppearanceTime(
      unmounted->doubleValue("DAAppearanceTime"));
}

void snapshot(benchmark::State& state) {
  Fixture registry(state.range(0));
  for (auto _ : state) benchmark::DoNotOptimize(registry.arbiter.mountedDictionaries());
}

/// The usual hand-written form.
struct HandWritten {
  explicit HandWritten(std::int64_t count) {
    for (std::int64_t i = 0; i < count; ++i) drives.push_back(*described(i, true));
  }
  void add(const Dictionary& description) {
    std::lock_guard lock(mutex);
    if (find(*description.url("DAVolumePath")) == drives.end()) drives.push_back(description);
  }
  void remove(const URL& path) {
    std::lock_guard lock(mutex);
    if (const auto it = find(path); it != drives.end()) drives.erase(it);
  }
  std::vector<Dictionary>::iterator find(const URL& path) {
    return std::find_if(drives.begin(), drives.end(),
                        [&](const Dictionary& d) { return *d.url("DAVolumePath") == path; });
  }
  std::mutex mutex;
  std::vector<Dictionary> drives;
};

void handWrittenAdditionAndRemoval(benchmark::State& state) {
  HandWritten registry(state.range(0));
  const auto card = described(1'000'000, true);
  for (auto _ : state) {
    registry.add(*card);
    registry.remove(*card->url("DAVolumePath"));
  }
}

void handWrittenSnapshot(benchmark::State& state) {
  HandWritten registry(state.range(0));
  for (auto _ : state) {
    std::lock_guard lock(registry.mutex);
    benchmark::DoNotOptimize(std::vector<Dictionary>(registry.drives));
  }
}

BENCHMARK(additionAndRemoval)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(handWrittenAdditionAndRemoval)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(mountAndUnmountOfAKnownDisk)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(snapshot)->Arg(10)->Arg(1000)->Arg(10000);
BENCHMARK(handWrittenSnapshot)->Arg(10)->Arg(1000)->Arg(10000);

}  // namespace
