// SPDX-License-Identifier: MIT
// A machine on which much happens at once, in any order of delivery, with losses and faults; at every quiet
// point the registry must show what the machine shows.
#include <algorithm>
#include <map>
#include <random>
#include <set>

#include "support/Registry.h"
#include "support/Sanitizers.h"

namespace kmv::testing {
namespace {

class Storm {
 public:
  Storm(unsigned seed, bool withFaults) : registry_(seed), dice_(seed), withFaults_(withFaults) {
    registry_.start();
  }

  void happen() {
    if (disks_.size() < 3 || (disks_.size() < 30 && below(4) == 0)) return plugIn();
    if (withFaults_ && below(12) == 0) return fault();
    auto it = disks_.begin();
    std::advance(it, below(static_cast<unsigned>(disks_.size())));
    const DiskId disk = it->first;
    switch (below(6)) {
      case 0:
        registry_.machine.unplug(disk);
        disks_.erase(it);
        break;
      case 1:
        it->second.isMounted ? unmount(it) : mount(it);
        break;
      case 2:
        it->second.isMounted ? registry_.machine.move(disk, newPath()) : mount(it);
        break;
      case 3:
        registry_.machine.rename(disk, "N" + std::to_string(++names_));
        break;
      case 4:
        registry_.machine.changeDescriptionKey(disk, "DAVolumeUUID",
                                               UUID(UUID::Bytes{7, static_cast<std::uint8_t>(below(3))}));
        break;
      default:
        registry_.machine.changeDescriptionKey(disk, "DAMediaSize", below(1000));
    }
  }

  /// Everything delivered, in order or not; then the registry equals the machine.
  void settle() {
    SimulatedPlatform& machine = registry_.machine;
    if (below(2) == 0) machine.shufflePending();
    machine.releaseEvents();
    machine.runUntilIdle();
    if (lost_) {
      machine.rescan();
      machine.runUntilIdle();
      lost_ = false;
    }
    for (const auto& disk : std::exchange(doomed_, {})) {
      if (machine.exists(disk.first)) disks_.insert(disk);  // the event at which it was to go was lost
    }
    check();
    machine.holdEvents();
  }

 private:
  struct State {
    bool isMounted;
    bool hasDevice;
  };
  using Disks = std::map<DiskId, State>;

  unsigned below(unsigned limit) { return static_cast<unsigned>(dice_() % limit); }
  // Never the same path twice: on a real machine a path is not mounted anew before its old volume is gone.
  std::string newPath() { return (below(2) ? "/Volumes/P" : "/media/P") + std::to_string(++names_); }

  void plugIn() {
    if (below(4) == 0) {
      disks_.emplace(registry_.machine.plugInPathVolume({.mountPoint = newPath()}), State{true, false});
      return;
    }
    const bool mounted = below(2) == 0;
    const std::string name = "N" + std::to_string(++names_);
    disks_.emplace(registry_.machine.plugIn({.name = name, .mountPoint = mounted ? "/Volumes/" + name : ""}),
                   State{mounted, true});
  }
  void mount(Disks::iterator it) {
    registry_.machine.mount(it->first, newPath());
    it->second.isMounted = true;
  }
  void unmount(Disks::iterator it) {
    registry_.machine.unmount(it->first);
    it->second.isMounted = false;
    if (!it->second.hasDevice) disks_.erase(it);
  }

  /// An event is lost, or a new disk cannot be described, or a description lacks an entry: a rescan heals
  /// each. A disk that goes while its changed size is described is reported as gone.
  void fault() {
    lost_ = true;
    switch (below(4)) {
      case 0:
        return loseOne();
      case 1:
        return registry_.machine.dropKeyFromNextDescription("DAMediaSize");
      case 2:
        registry_.machine.failNextDescription();
        return plugIn();
      default:
        vanish();
    }
  }

  void loseOne() {
    const auto count = static_cast<unsigned>(registry_.machine.pendingEvents().size());
    if (count > 0) registry_.machine.lose(below(count));
  }

  void vanish() {
    if (disks_.empty()) return;
    const auto it = disks_.begin();
    registry_.machine.vanishWhileDescribed(it->first);
    registry_.machine.changeDescriptionKey(it->first, "DAMediaSize", 1'000'000 + ++names_);
    doomed_.push_back(*it);  // nothing else happens to it until then
    disks_.erase(it);
  }

  void check() {
    std::set<std::string> mounted;
    std::size_t unmounted = 0;
    for (const auto& [disk, state] : disks_) {
      const Dictionary description = registry_.machine.description(disk);
      const URL* path = description.url("DAVolumePath");
      if (path != nullptr) mounted.insert(path->path());
      if (path == nullptr) ++unmounted;
    }
    std::set<std::string> listed;
    for (const auto& [key, contents] : registry_.arbiter().mountedDictionaries()) {
      listed.insert(key.path());
      ASSERT_EQ(*contents->url("DAVolumePath"), key);
    }
    ASSERT_EQ(listed, mounted);
    ASSERT_EQ(registry_.arbiter().unmountedDictionaries().size(), unmounted);
    ASSERT_EQ(registry_.arbiter().volumeURLsCurrentlyMounted()->count(), mounted.size());
    ASSERT_EQ(announced(), listed);
  }

  /// What somebody who only heard the announcements takes to be present.
  std::set<std::string> announced() {
    for (const Heard& one : std::exchange(registry_.heard, {})) {
      const auto contents = one.object.dictionary();
      if (one.name == "changed") continue;
      if (one.name == "new") {
        EXPECT_TRUE(live_.insert(one.object.drive()).second) << "announced twice: " << one.path;
        continue;
      }
      const auto it = std::find_if(live_.begin(), live_.end(), [&](const auto& drive) {
        return *drive->snapshot()->url("DAVolumePath") == *contents->url("DAVolumePath");
      });
      EXPECT_NE(it, live_.end()) << "removed without having been announced: " << one.path;
      if (it != live_.end()) live_.erase(it);
    }
    registry_.news();
    std::set<std::string> paths;
    for (const auto& drive : live_) paths.insert(drive->value("DAVolumePath")->asURL()->path());
    return paths;
  }

  Registry registry_;
  std::mt19937 dice_;
  bool withFaults_;
  bool lost_ = false;
  int names_ = 0;
  Disks disks_;
  std::vector<Disks::value_type> doomed_;
  std::set<std::shared_ptr<DriveDictionary>> live_;
};

class SimulatedStorm : public ::testing::TestWithParam<unsigned> {};

TEST_P(SimulatedStorm, LeavesTheRegistryEqualToTheMachine) {
  Storm storm(GetParam(), /*withFaults=*/GetParam() % 2 == 1);
  storm.settle();
  for (int event = 1; event <= test::stepsOnOneThread(50'000) && !::testing::Test::HasFailure(); ++event) {
    storm.happen();
    if (event % 20 == 0) storm.settle();
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, SimulatedStorm, ::testing::Values(10u, 11u, 12u, 13u));

}  // namespace
}  // namespace kmv::testing
