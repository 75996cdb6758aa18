// SPDX-License-Identifier: MIT
// Random and partly senseless events, told to the registry and to a plain model that walks its lists from end
// to end. The registry finds drives through indices instead; both must always agree.
#include "platform/Platform.h"
#include "support/PlainModel.h"
#include "support/Registry.h"
#include "support/Sanitizers.h"
#include "support/Testing.h"

namespace kmv::simulation {
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

/// The registry beside the model. Made in a process of its own for each seed: both singletons live as long as one.
class Run {
 public:
  explicit Run(unsigned seed) : dice(seed), registry(seed) { registry.start(); }
  virtual ~Run() = default;
  virtual void happen() = 0;
  virtual void compare() {
    Lines expected = std::exchange(model.now, {});
    expected.insert(expected.end(), model.later.begin(), model.later.end());
    model.later.clear();
    Lines lines = registry.news();
    for (std::string& line : lines) {
      if (line.starts_with("new")) line = "new";  // the live drive may have moved on since
    }
    std::sort(lines.begin(), lines.end());
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(lines, expected);
    const auto urls = arbiter.volumeURLsCurrentlyMounted()->snapshot();
    std::vector<Dictionary> unmounted;
    for (const auto& description : arbiter.unmountedDictionaries()) unmounted.push_back(*description);
    ASSERT_EQ(printed(arbiter.mountedDictionaries(), {urls.begin(), urls.end()}, unmounted),
              printed(model.present, model.urls, model.unmounted));
    registry.heard.clear();
  }
  void happenAndCompare(unsigned events) {
    for (unsigned event = 0; event < events && !::testing::Test::HasFatalFailure(); ++event) {
      SCOPED_TRACE(event);
      happen();
      if (dice.oneIn(8)) {
        machine.runUntilIdle();
        compare();
      }
    }
  }

 protected:
  Dice dice;
  Registry registry;
  SimulatedPlatform& machine = registry.machine;
  KMVDiskArbiter& arbiter = registry.arbiter();
  PlainModel model;
};

/// Events that no machine sends, given to the registry directly, between a host's own changes of live drives.
class SenselessEvents : public Run {
 public:
  using Run::Run;
  void happen() override {
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
};

/// A machine whose disks come, go, move and hide each other. On every other seed events are lost, damaged and reordered
/// too; on the rest the lists must also say what the test itself has mounted.
class WorkingMachine : public Run {
 public:
  explicit WorkingMachine(unsigned seed) : Run(seed), hasFaults_(seed % 2 == 0) {
    witness_->setQueue(makeSerialQueue("witness"));
    witness_->registerCallbacks({&appeared, &disappeared, &changed}, &model);
  }

  void happen() override {
    std::erase_if(disks_, [this](const auto& disk) { return !machine.exists(disk.first); });  // it vanished
    if (disks_.empty() || dice.oneIn(5)) return plugIn();
    if (hasFaults_ && dice.oneIn(4)) return fail();
    const auto disk = std::next(disks_.begin(), dice.below(disks_.size()));
    const unsigned verb = disks_.size() > 6 ? 0 : dice.below(6);
    if (verb == 0) {
      machine.unplug(disk->first);
      disks_.erase(disk);
    } else if (verb == 1 && (hasFaults_ || disk->second.hasDevice)) {
      // Of two volumes without UUID and time the registry takes the first for the one that was renamed, by contract.
      rename(disk->first, disk->second);
    } else if (verb == 2) {
      machine.changeDescriptionKey(disk->first, dice.oneIn(2) ? kUUID : "DAVolumeKind",
                                   dice.valueOf("DAVolumeName"));
    } else if (disk->second.path.empty()) {
      machine.mount(disk->first, place(disk->second));
    } else if (verb < 5) {
      machine.move(disk->first, place(disk->second));
    } else {
      machine.unmount(disk->first);
      if (disk->second.hasDevice) {
        disk->second.path.clear();
      } else {
        disks_.erase(disk);
      }
    }
  }

  void compare() override {
    Run::compare();
    if (::testing::Test::HasFatalFailure()) return;
    const std::string path = "/Volumes/" + name();
    const auto visible = visibleAt(path);
    if (!visible) {
      ASSERT_EQ(arbiter.findRootMountDictionaryForURL(URL::fileURLWithPath(path + "/x", false)), nullptr);
    } else if (const auto known = model.present.find(URL::fileURLWithPath(path, true));
               known != model.present.end()) {
      ASSERT_EQ(arbiter.findRootMountDictionaryForURL(URL::fileURLWithPath(path, true)),
                registry.drive(path));
    } else {
      ASSERT_TRUE(hasFaults_) << "a drive is missing at " << path;
      arbiter.findRootMountDictionaryForURL(URL::fileURLWithPath(path, true));
      model.appeared(machine.description(*visible));  // registered by the look-up
    }
    if (!hasFaults_) compareWithWhatIsMounted();
  }

 private:
  struct Known {
    std::string name;
    std::string path = {};  // of its mount, hidden or not
    bool hasDevice = true;
    unsigned mounted = 0;  // ascends
  };

  static void appeared(Disk* disk, void* model) {
    if (const auto d = disk->copyDescription()) static_cast<PlainModel*>(model)->appeared(*d);
  }
  static void disappeared(Disk* disk, void* model) {
    if (const auto d = disk->copyDescription()) static_cast<PlainModel*>(model)->disappeared(*d);
  }
  static void changed(Disk* disk, const ChangedKeys* keys, void* model) {
    if (const auto d = disk->copyDescription()) static_cast<PlainModel*>(model)->changed(*d, *keys);
  }

  std::string name() { return std::to_string(dice.below(4)); }
  /// The same place is no move.
  std::string place(Known& disk) {
    const std::string path = "/Volumes/" + name();
    if (path != disk.path) disk.mounted = ++mounts_;
    return disk.path = path;
  }
  void plugIn() {
    Known disk{name()};
    const std::string path = dice.oneIn(3) ? std::string() : place(disk);
    if (path.empty() || dice.oneIn(2)) {
      const DiskId id =
          machine.plugIn({.name = disk.name, .mountPoint = path, .kind = dice.oneIn(5) ? "odaudf" : "exfat"});
      disks_.emplace(id, disk);
    } else {
      disk.hasDevice = false;
      disks_.emplace(machine.plugInPathVolume({.mountPoint = path, .name = disk.name}), disk);
    }
  }
  /// A volume that is mounted under its name moves along, unless it is hidden.
  void rename(DiskId id, Known& disk) {
    const std::string newName = name();
    if (disk.path == "/Volumes/" + disk.name && visibleAt(disk.path) == id && newName != disk.name) {
      disk.path = "/Volumes/" + newName;
      disk.mounted = ++mounts_;
    }
    disk.name = newName;
    machine.rename(id, newName);
  }
  void fail() {
    const auto held = machine.pendingEvents().size() / 2;  // pairs: for the registry, for the witness
    switch (dice.below(held > 0 ? 9 : 6)) {
      case 0:
        return machine.loseNextEvent();
      case 1:
        return machine.failNextDescription();
      case 2:
        return machine.dropKeyFromNextDescription(dice.oneIn(2) ? kUUID : kPath);
      case 3:
        return machine.vanishWhileDescribed(disks_.begin()->first);
      case 4:
        machine.releaseEvents();  // what a rescan told would be held in no pairs
        return machine.rescan();
      case 5:
        return machine.holdEvents();
      case 6:
        return machine.releaseEvents();
      default:
        const std::size_t event = 2 * dice.below(held);
        const bool isLost = dice.oneIn(4);
        for (int session = 0; session < 2; ++session) isLost ? machine.lose(event) : machine.deliver(event);
    }
  }
  std::optional<DiskId> visibleAt(const std::string& path) const {
    std::optional<DiskId> newest;
    for (const auto& [id, disk] : disks_) {
      if (disk.path == path && machine.exists(id) && (!newest || disks_.at(*newest).mounted < disk.mounted))
        newest = id;
    }
    return newest;
  }
  void compareWithWhatIsMounted() {
    Lines expected, listed;
    std::size_t unmounted = 0;
    for (const auto& [id, disk] : disks_) {
      if (!disk.path.empty() && visibleAt(disk.path) == id) {
        expected.push_back(disk.path);
      } else {
        unmounted += disk.hasDevice ? 1 : 0;
      }
    }
    for (const auto& [url, contents] : arbiter.mountedDictionaries()) listed.push_back(url.path());
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(listed, expected);
    ASSERT_EQ(arbiter.unmountedDictionaries().size(), unmounted);
  }

  const bool hasFaults_;
  std::unique_ptr<DiskArbitrationSession> witness_ = Platform::current().makeDiskArbitrationSession();
  std::map<DiskId, Known> disks_;
  unsigned mounts_ = 0;
};

unsigned amount(const char* variable, int usual) {
  const char* const text = std::getenv(variable);
  return static_cast<unsigned>(text == nullptr ? test::stepsOnOneThread(usual) : std::stoi(text));
}

/// In the child process, whose own report nobody sees.
[[noreturn]] void endWithVerdict() {
  const ::testing::TestResult& result = *::testing::UnitTest::GetInstance()->current_test_info()->result();
  for (int part = 0; part < result.total_part_count(); ++part)
    std::cerr << result.GetTestPartResult(part).message() << "\n";
  std::exit(result.Failed() ? 1 : 0);
}

template <typename OneRun>
void runSeeds() {
  const char* const seeds = std::getenv("KMV_SIMULATION_SEEDS");
  const unsigned last = seeds == nullptr ? 4 : static_cast<unsigned>(std::stoi(seeds));
  for (unsigned seed = 1; seed <= last && !::testing::Test::HasFailure(); ++seed) {
    EXPECT_EXIT(
        {
          OneRun(seed).happenAndCompare(amount("KMV_SIMULATION_EVENTS", 5'000));
          endWithVerdict();
        },
        ::testing::ExitedWithCode(0), "")
        << "seed " << seed;
  }
}

TEST(RandomEvents, EndInTheListsAndAnnouncementsOfAPlainModelHoweverSenseless) {
  runSeeds<SenselessEvents>();
}

TEST(RandomEvents, OfAMachineWithAndWithoutFaultsEndInTheListsOfAPlainModel) {
  runSeeds<WorkingMachine>();
}

}  // namespace
}  // namespace kmv::simulation
