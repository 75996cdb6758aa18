// SPDX-License-Identifier: MIT
// Random and partly senseless events, told to the registry and to a plain model that walks its lists from end
// to end. The registry finds drives through indices instead; both must always agree.
#include <algorithm>
#include <cmath>
#include <map>
#include <random>
#include <set>

#include "support/Registry.h"
#include "support/Sanitizers.h"

namespace kmv::testing {
namespace {

const std::string kPath = "DAVolumePath", kUUID = "DAVolumeUUID", kTime = "DAAppearanceTime";

/// The registry's rules, written down as plainly as possible.
class PlainModel {
 public:
  using Drive = std::shared_ptr<Dictionary>;

  void appeared(const Dictionary& d) {
    const URL* path = d.url(kPath);
    if (path && present.count(standard(*path))) return;
    if (!d.contains("DAVolumeMountable")) return;
    if (!path) return unmounted.push_back(d);
    const auto holds = [&](const char* key, bool value) {
      return d.contains(key) && d.find(key)->boolValue() == value;
    };
    const auto drive = std::make_shared<Dictionary>(d);
    drive->set("DAMediaRemovableActual", holds("DADeviceInternal", false) || holds("DAVolumeNetwork", true) ||
                                             holds("DAMediaEjectable", true));
    drive->set("diskMountedPriorToApplicationInstance", false);
    if (d.uuid(kUUID)) drive->set("driveUUIDKey", uuidText(d));
    present[standard(*path)] = drive;
    urls.insert(standard(*path));
    const std::string* kind = d.text("DAVolumeKind");
    if (kind == nullptr || *kind != "odaudf") later.push_back("new");
  }

  void disappeared(const Dictionary& d) {
    if (const URL* path = d.url(kPath)) return removeAtURL(*path);
    if (takeUnmounted(d.doubleValue(kTime)) || !d.uuid(kUUID)) return;
    const auto found = std::find_if(present.begin(), present.end(), [&](const auto& entry) {
      const std::string* uuid = entry.second->text("driveUUIDKey");
      return uuid && *uuid == uuidText(d);
    });
    if (found == present.end()) return;
    const Drive drive = found->second;
    if (const URL* path = drive->url(kPath)) takeOut(*path);
    now.push_back("removed " + pathText(*drive));
  }

  void changed(const Dictionary& d, const ChangedKeys& keys) {
    const std::set<std::string> changed(keys.begin(), keys.end());
    if (!changed.count(kPath) || (changed.count(kUUID) && changed.count(kTime))) return;
    if (takeUnmounted(d.doubleValue(kTime))) return appeared(d);
    const auto found = std::find_if(present.begin(), present.end(), [&](const auto& entry) {
      return (changed.count(kUUID) || uuidText(d) == uuidText(*entry.second)) &&
             (changed.count(kTime) || d.doubleValue(kTime) == entry.second->doubleValue(kTime));
    });
    if (found == present.end()) return;
    const Drive drive = found->second;
    std::optional<URL> old;
    if (const URL* url = drive->url(kPath)) old = *url;
    if (d.url(kPath) == nullptr) {
      if (old) removeAtURL(*old);
      return unmounted.push_back(d);
    }
    if (changed.count("DAVolumeName")) renamed(drive, old, d, keys);
  }

  std::map<URL, Drive> present;
  std::set<URL> urls;
  std::vector<Dictionary> unmounted;
  Lines now, later;

 private:
  static URL standard(const URL& url) {
    std::string path = url.path();
    if (const auto at = path.find("//"); at != std::string::npos) path.erase(at, 1);
    return URL::fileURLWithPath(path, url.hasDirectoryPath());
  }
  static std::string uuidText(const Dictionary& d) { return d.uuid(kUUID) ? d.uuid(kUUID)->string() : ""; }
  static std::string pathText(const Dictionary& d) { return d.url(kPath) ? d.url(kPath)->path() : ""; }

  void takeOut(URL key) {
    urls.erase(key);
    present.erase(key);
  }
  bool takeUnmounted(double time) {
    const auto found = std::find_if(unmounted.begin(), unmounted.end(),
                                    [&](const Dictionary& d) { return d.doubleValue(kTime) == time; });
    if (found == unmounted.end()) return false;
    unmounted.erase(found);
    return true;
  }
  void removeAtURL(const URL& url) {
    const bool isKey = present.count(standard(url));
    if (!isKey && !present.count(url)) return;
    const Drive found = present[isKey ? standard(url) : url];
    later.push_back("removed " + pathText(*found));
    if (isKey) return takeOut(standard(url));
    if (const URL* own = found->url(kPath)) takeOut(*own);
  }
  void renamed(const Drive& drive, const std::optional<URL>& old, const Dictionary& d,
               const ChangedKeys& keys) {
    const URL to = *d.url(kPath);
    if (old) drive->set("driveOldURLKey", *old);
    for (const std::string& key : keys) d.contains(key) ? drive->set(key, *d.find(key)) : drive->remove(key);
    const Drive moved = old && present.count(*old) ? present[*old] : nullptr;
    if (old) takeOut(*old);
    present.erase(to);
    if (moved) present[to] = moved;
    urls.insert(to);
    now.push_back("changed " + to.path());
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

/// Printed, since NaN is unequal to itself.
template <typename Drives, typename Descriptions>
Lines printed(const Drives& drives, const std::set<URL>& urls, const Descriptions& unmounted) {
  Lines lines;
  for (const auto& [key, contents] : drives)
    lines.push_back(key.absoluteString() + Value(*contents).description());
  for (const URL& url : urls) lines.push_back(url.absoluteString());
  for (const Dictionary& description : unmounted) lines.push_back(Value(description).description());
  return lines;
}

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
