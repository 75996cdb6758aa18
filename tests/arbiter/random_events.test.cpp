// SPDX-License-Identifier: MIT
// Random and partly senseless events, told to the registry and to a plain model that walks its lists from end
// to end. The registry finds drives through indices instead; both must always agree.
#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>

#include "support/PlainModel.h"
#include "support/Registry.h"
#include "support/Sanitizers.h"

namespace kmv::testing {
namespace {

const std::string kPath = PlainModel::kPath, kUUID = PlainModel::kUUID, kTime = PlainModel::kTime;

struct FixedDisk : Disk {
  explicit FixedDisk(Dictionary contents) : description(std::move(contents)) {}
  std::optional<Dictionary> copyDescription() const override { return description; }
  Dictionary description;
};

class Dice {
 public:
  explicit Dice(unsigned seed) : engine_(seed) {}
  unsigned below(std::size_t limit) { return static_cast<unsigned>(engine_() % limit); }
  bool oneIn(unsigned chances) { return below(chances) == 0; }

  std::optional<Value> valueOf(const std::string& key) {
    if (oneIn(5)) return std::nullopt;
    if (oneIn(40)) return Value(Array{1});  // of a kind that nobody expects
    if (key == kPath) {
      const std::string folder = oneIn(4) ? "/Volumes//" : "/Volumes/";
      return Value(URL::fileURLWithPath(folder + std::to_string(below(5)), !oneIn(4)));
    }
    if (key == kUUID) return Value(UUID(UUID::Bytes{static_cast<std::uint8_t>(below(3))}));
    if (key == kTime) return oneIn(9) ? Value(std::nan("")) : Value(static_cast<double>(below(4)));
    if (key == "DAVolumeKind") return Value(oneIn(4) ? "odaudf" : "exfat");
    if (key == "DAVolumeName") return Value("name " + std::to_string(below(4)));
    return Value(oneIn(2));
  }
  Dictionary description() {
    Dictionary d;
    for (const char* key :
         {"DAVolumePath", "DAVolumeUUID", "DAAppearanceTime", "DAVolumeKind", "DAVolumeName",
          "DAVolumeMountable", "DADeviceInternal", "DAVolumeNetwork", "DAMediaEjectable"}) {
      if (const auto value = valueOf(key)) d.set(key, *value);
    }
    return d;
  }
  ChangedKeys changedKeys() {
    ChangedKeys keys;
    for (const std::string& key : {std::string("DAVolumeName"), kPath, kUUID, kTime}) {
      if (oneIn(key == kUUID || key == kTime ? 4 : 2)) keys.push_back(key);
    }
    return keys;
  }

 private:
  std::mt19937 engine_;
};

class RandomEvents : public RegistryTest, public ::testing::WithParamInterface<unsigned> {
 protected:
  void happen() {
    FixedDisk disk(dice.description());
    const unsigned event = dice.below(8);
    if (event < 3) {
      NewDiskAppeared(&disk, &arbiter);
      model.appeared(disk.description);
    } else if (event == 3) {
      DiskDisappeared(&disk, &arbiter);
      model.disappeared(disk.description);
    } else if (event == 4) {
      editALiveDrive();
    } else {
      const ChangedKeys keys = dice.changedKeys();
      DiskDescriptionChanged(&disk, &keys, &arbiter);
      model.changed(disk.description, keys);
    }
  }
  void compare() {
    ASSERT_EQ(registry.news(), std::exchange(model.now, {}));
    Lines later = news();
    for (std::string& line : later) {
      if (line.starts_with("new")) line = "new";  // the live drive may have moved on since
    }
    ASSERT_EQ(later, std::exchange(model.later, {}));
    const auto urls = arbiter.volumeURLsCurrentlyMounted()->snapshot();
    std::vector<Dictionary> unmounted;
    for (const auto& description : arbiter.unmountedDictionaries()) unmounted.push_back(*description);
    ASSERT_EQ(printed(arbiter.mountedDictionaries(), {urls.begin(), urls.end()}, unmounted),
              printed(model.present, model.urls, model.unmounted));
    registry.heard.clear();
  }

  Dice dice{GetParam()};

 private:
  void editALiveDrive() {
    const auto entries = arbiter.presentDiskDictionaries()->snapshot();
    if (entries.empty()) return;
    const auto& [key, drive] = entries[dice.below(entries.size())];
    const std::string name = dice.oneIn(3) ? kUUID : dice.oneIn(2) ? kTime : kPath;
    const auto value = dice.valueOf(name);
    value ? drive->set(name, *value) : drive->remove(name);
    value ? model.present[key]->set(name, *value) : model.present[key]->remove(name);
  }

  PlainModel model;
};

TEST_P(RandomEvents, EndInTheListsAndAnnouncementsOfAPlainModel) {
  registry.start();
  for (int event = 0; event < test::stepsOnOneThread(12'000); ++event) {
    happen();
    if (!dice.oneIn(8)) continue;
    compare();
    ASSERT_FALSE(HasFatalFailure()) << "event " << event;
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomEvents, ::testing::Values(1u, 2u, 3u, 4u));

}  // namespace
}  // namespace kmv::testing
