// SPDX-License-Identifier: MIT
// Random and partly senseless events, told to the registry and to a plain model that walks its lists from end
// to end. The registry finds drives through indices instead; both must always agree.
#include <cmath>
#include <list>
#include <map>
#include <random>
#include <set>

#include "support/Registry.h"
#include "support/Sanitizers.h"

namespace kmv::testing {
namespace {

/// The registry's rules, written down as plainly as possible.
class PlainModel {
 public:
  using Drive = std::shared_ptr<Dictionary>;

  void appeared(const Dictionary& d) { add(d); }

  void disappeared(const Dictionary& d) {
    if (const URL* path = d.url("DAVolumePath")) return removeAtURL(*path);
    if (takeUnmounted(d.doubleValue("DAAppearanceTime"))) return;
    if (const UUID* uuid = d.uuid("DAVolumeUUID")) removeWithUUID(uuid->string());
  }

  void changed(const Dictionary& d, const ChangedKeys& keys) {
    const std::set<std::string> changed(keys.begin(), keys.end());
    const bool path = changed.count("DAVolumePath"), uuid = changed.count("DAVolumeUUID");
    const bool time = changed.count("DAAppearanceTime"), name = changed.count("DAVolumeName");
    if (path && uuid && time) return;
    if (path && takeUnmounted(d.doubleValue("DAAppearanceTime"))) return add(d);
    Drive match;
    for (const auto& [key, drive] : present) {
      if (!uuid && uuidText(d) != uuidText(*drive)) continue;
      if (!path && !(d.url("DAVolumePath") && drive->url("DAVolumePath") &&
                     *d.url("DAVolumePath") == *drive->url("DAVolumePath"))) {
        continue;
      }
      if (!time && d.doubleValue("DAAppearanceTime") != drive->doubleValue("DAAppearanceTime")) continue;
      match = drive;
      break;
    }
    if (match == nullptr || !path) return;
    std::optional<URL> old;
    if (const URL* url = match->url("DAVolumePath")) old = *url;
    if (d.url("DAVolumePath") == nullptr) {
      if (old) removeAtURL(*old);
      unmounted.push_back(d);
      return;
    }
    if (!name) return;
    if (old) match->set("driveOldURLKey", *old);
    for (const std::string& key : keys) {
      if (d.contains(key)) {
        match->set(key, *d.find(key));
      } else {
        match->remove(key);
      }
    }
    const URL to = *d.url("DAVolumePath");
    Drive moved;
    if (old && present.count(*old)) moved = present[*old];
    if (old) present.erase(*old);
    present.erase(to);
    if (moved) present[to] = moved;
    if (old) urls.erase(*old);
    urls.insert(to);
    match->set("DAVolumePath", to);
    now.push_back("changed " + to.path());
  }

  void removeAtURL(const URL& url) {
    URL key = standard(url);
    Drive found = present.count(key) ? present[key] : nullptr;
    if (!found && present.count(url)) {
      found = present[url];
      if (const URL* path = found->url("DAVolumePath")) key = *path;
    }
    if (!found) return;
    urls.erase(key);
    present.erase(key);
    later.push_back("removed " + pathText(*found));
  }

  void removeWithUUID(const std::string& uuid) {
    for (const auto& [key, drive] : present) {
      if (!drive->text("driveUUIDKey") || *drive->text("driveUUIDKey") != uuid) continue;
      const Drive found = drive;
      if (const URL* path = found->url("DAVolumePath")) {
        const URL at = *path;
        urls.erase(at);
        present.erase(at);
      }
      now.push_back("removed " + pathText(*found));
      return;
    }
  }

  std::map<URL, Drive> present;
  std::set<URL> urls;
  std::list<Dictionary> unmounted;
  Lines now, later;

 private:
  static URL standard(const URL& url) {
    std::string path;
    for (const char c : url.path()) {
      if (c != '/' || path.empty() || path.back() != '/') path += c;
    }
    return URL::fileURLWithPath(path, url.hasDirectoryPath());
  }
  static std::string uuidText(const Dictionary& d) {
    return d.uuid("DAVolumeUUID") ? d.uuid("DAVolumeUUID")->string() : "";
  }
  static std::string pathText(const Dictionary& d) {
    return d.url("DAVolumePath") ? d.url("DAVolumePath")->path() : "";
  }

  bool takeUnmounted(double time) {
    for (auto it = unmounted.begin(); it != unmounted.end(); ++it) {
      if (it->doubleValue("DAAppearanceTime") != time) continue;
      unmounted.erase(it);
      return true;
    }
    return false;
  }

  void add(const Dictionary& d) {
    const URL* path = d.url("DAVolumePath");
    if (path && present.count(standard(*path))) return;
    if (!d.contains("DAVolumeMountable")) return;
    if (!path) return unmounted.push_back(d);
    bool removable = d.contains("DADeviceInternal") && !d.find("DADeviceInternal")->boolValue();
    for (const char* key : {"DAVolumeNetwork", "DAMediaEjectable"}) {
      removable = removable || (d.contains(key) && d.find(key)->boolValue());
    }
    const auto drive = std::make_shared<Dictionary>(d);
    if (!d.contains("DAMediaRemovableActual")) drive->set("DAMediaRemovableActual", removable);
    drive->set("diskMountedPriorToApplicationInstance", false);
    if (d.uuid("DAVolumeUUID")) drive->set("driveUUIDKey", d.uuid("DAVolumeUUID")->string());
    present[standard(*path)] = drive;
    urls.insert(standard(*path));
    const std::string* kind = d.text("DAVolumeKind");
    if (kind == nullptr || *kind != "odaudf") later.push_back("new");
  }
};

struct FixedDisk : Disk {
  explicit FixedDisk(Dictionary contents) : description(std::move(contents)) {}
  std::optional<Dictionary> copyDescription() const override { return description; }
  Dictionary description;
};

class Dice {
 public:
  explicit Dice(unsigned seed) : engine_(seed) {}
  unsigned below(unsigned limit) { return static_cast<unsigned>(engine_() % limit); }
  bool oneIn(unsigned chances) { return below(chances) == 0; }

  std::optional<Value> valueOf(const std::string& key) {
    if (oneIn(5)) return std::nullopt;
    if (oneIn(40)) return Value(Array{1});  // of a kind that nobody expects
    if (key == "DAVolumePath") {
      return Value(URL::fileURLWithPath((oneIn(4) ? "/Volumes//" : "/Volumes/") + std::to_string(below(5)),
                                        !oneIn(4)));
    }
    if (key == "DAVolumeUUID") return Value(UUID(UUID::Bytes{static_cast<std::uint8_t>(below(3))}));
    if (key == "DAAppearanceTime")
      return oneIn(9) ? Value(std::nan("")) : Value(static_cast<double>(below(4)));
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
    for (const char* key :
         {"DAVolumeName", "DAVolumePath", "DAVolumeUUID", "DAAppearanceTime", "DAVolumeKind"}) {
      if (oneIn(key == std::string("DAVolumeUUID") || key == std::string("DAAppearanceTime") ? 4 : 2))
        keys.emplace_back(key);
    }
    return keys;
  }

 private:
  std::mt19937 engine_;
};

class RandomEvents : public ::testing::TestWithParam<unsigned> {};

void compare(Registry& registry, PlainModel& model) {
  KMVDiskArbiter& arbiter = registry.arbiter();
  const auto copies = arbiter.mountedDictionaries();
  ASSERT_EQ(copies.size(), model.present.size());
  auto expected = model.present.begin();
  for (const auto& [key, contents] : copies) {
    ASSERT_EQ(key, expected->first);
    ASSERT_EQ(contents->size(), expected->second->size());
    for (const auto& [name, value] :
         *contents) {  // no number is unequal to itself, so compare what is printed
      ASSERT_TRUE(expected->second->contains(name)) << name;
      ASSERT_EQ(value.description(), expected->second->find(name)->description()) << name;
    }
    ++expected;
  }
  const auto urls = arbiter.volumeURLsCurrentlyMounted()->snapshot();
  ASSERT_EQ(std::set<URL>(urls.begin(), urls.end()), model.urls);
  const auto unmounted = arbiter.unmountedDictionaries();
  ASSERT_EQ(unmounted.size(), model.unmounted.size());
  auto one = model.unmounted.begin();
  for (const auto& description : unmounted) {
    ASSERT_EQ(Value(*description).description(), Value(*one++).description());
  }
}

TEST_P(RandomEvents, EndInTheListsAndAnnouncementsOfAPlainModel) {
  Registry registry;
  KMVDiskArbiter& arbiter = registry.start();
  PlainModel model;
  Dice dice(GetParam());
  for (int event = 0; event < test::stepsOnOneThread(25'000); ++event) {
    FixedDisk disk(dice.description());
    switch (dice.below(8)) {
      case 0:
      case 1:
      case 2:
        NewDiskAppeared(&disk, &arbiter);
        model.appeared(disk.description);
        break;
      case 3:
        DiskDisappeared(&disk, &arbiter);
        model.disappeared(disk.description);
        break;
      case 4: {  // the host edits a live drive
        const auto entries = arbiter.presentDiskDictionaries()->snapshot();
        if (entries.empty()) break;
        const auto& [key, drive] = entries[dice.below(static_cast<unsigned>(entries.size()))];
        const std::string name = dice.oneIn(3)   ? "DAVolumeUUID"
                                 : dice.oneIn(2) ? "DAAppearanceTime"
                                                 : "DAVolumePath";
        const auto value = dice.valueOf(name);
        if (value) drive->set(name, *value);
        if (!value) drive->remove(name);
        if (value) model.present[key]->set(name, *value);
        if (!value) model.present[key]->remove(name);
        break;
      }
      default: {
        const ChangedKeys keys = dice.changedKeys();
        DiskDescriptionChanged(&disk, &keys, &arbiter);
        model.changed(disk.description, keys);
      }
    }
    if (dice.oneIn(8)) {
      const Lines atOnce = registry.news();
      ASSERT_EQ(atOnce, std::exchange(model.now, {})) << "event " << event;
      registry.machine.runUntilIdle();
      Lines later = registry.news();
      for (std::string& line : later) {
        if (line.starts_with("new")) line = "new";  // the live drive may have moved on since
      }
      ASSERT_EQ(later, std::exchange(model.later, {})) << "event " << event;
      ASSERT_NO_FATAL_FAILURE(compare(registry, model)) << "event " << event;
      registry.heard.clear();
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomEvents, ::testing::Values(1u, 2u, 3u, 4u));

}  // namespace
}  // namespace kmv::testing
