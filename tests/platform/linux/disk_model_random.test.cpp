// SPDX-License-Identifier: MIT
// Random machines, heard of through two sources that are late by different amounts. Whatever the
// interleaving, listeners end up with what is there.
#include "platform/linux/ModelBench.h"
#include "support/Testing.h"

namespace kmv {
namespace {

using test::disk;
using test::ModelBench;
using test::mount;

/// The truth, and the news of it that nobody has read yet.
class Machine {
 public:
  explicit Machine(unsigned seed) : random_(seed) {}

  void doSomething(ModelBench& bench) {
    const unsigned minor = pick(3);
    const DeviceNumber number{8, minor};
    switch (pick(6)) {
      case 0:
        if (bench.present.contains(number)) break;
        bench.present[number] = disk(minor, "sd" + std::string(1, static_cast<char>('a' + minor)), ++medium_);
        news_.push_back(number);
        break;
      case 1:
        if (!bench.present.contains(number) || isMounted(number)) break;
        bench.present.erase(number);
        news_.push_back(number);
        break;
      case 2:
      case 3:
        if (bench.present.contains(number)) mountSomewhere(number, "ext4");
        break;
      case 4:
        mountSomewhere({0, 50 + minor}, "fuse.x");
        break;
      case 5:
        if (!mounts_.empty()) unmountOrMove();
        break;
    }
  }

  /// Lets the model read all device news, as the session does before it reads the mount table.
  void readDevices(ModelBench& bench) {
    for (; !news_.empty(); news_.pop_front()) {
      const auto found = bench.present.find(news_.front());
      if (found == bench.present.end()) {
        bench.model.deviceRemoved(news_.front());
      } else {
        bench.model.deviceSeen(found->second);
      }
    }
  }

  void readMounts(ModelBench& bench) {
    std::vector<MountEntry> newer;
    for (const auto& [id, entry] : mounts_) newer.push_back(entry);
    bench.model.mountsChanged(diffMountTables(read_, newer));
    read_ = std::move(newer);
  }

  /// "device path" of each disk there should be, worked out anew from the whole truth.
  std::multiset<std::string> disks(const ModelBench& bench) const {
    std::map<DeviceNumber, std::string> first;
    for (const auto& [id, entry] : mounts_) {
      if (!isCovered(entry)) first.emplace(entry.device, entry.point);
    }
    std::multiset<std::string> lines;
    for (const auto& [number, device] : bench.present) {
      lines.insert(device.name + " " + (first.contains(number) ? first[number] : std::string("none")));
    }
    for (const auto& [number, point] : first) {
      if (number.major == 0) lines.insert("? " + point);
    }
    return lines;
  }

  unsigned pick(unsigned count) { return std::uniform_int_distribution<unsigned>(0, count - 1)(random_); }

 private:
  bool isMounted(DeviceNumber number) const {
    return std::any_of(mounts_.begin(), mounts_.end(),
                       [&](const auto& entry) { return entry.second.device == number; });
  }
  bool isCovered(const MountEntry& entry) const {
    return std::any_of(mounts_.begin(), mounts_.end(),
                       [&](const auto& other) { return other.second.parent == entry.id; });
  }
  const MountEntry* topAt(const std::string& point) const {
    for (const auto& [id, entry] : mounts_) {
      if (entry.point == point && !isCovered(entry)) return &entry;
    }
    return nullptr;
  }
  void mountSomewhere(DeviceNumber number, const std::string& kind) {
    MountEntry entry = mount(++lastId_, number, "/" + std::string(1, static_cast<char>('p' + pick(3))), kind);
    if (const MountEntry* below = topAt(entry.point)) entry.parent = below->id;
    mounts_[entry.id] = entry;
  }
  void unmountOrMove() {
    auto chosen = mounts_.begin();
    std::advance(chosen, pick(static_cast<unsigned>(mounts_.size())));
    if (isCovered(chosen->second)) return;
    const std::string point = "/moved" + std::to_string(pick(2));
    if (pick(3) == 0 && topAt(point) == nullptr) {
      chosen->second.point = point;
      chosen->second.parent = 1;
    } else {
      mounts_.erase(chosen);
    }
  }

  std::mt19937 random_;
  std::uint64_t medium_ = 0;
  std::uint64_t lastId_ = 1;
  std::map<std::uint64_t, MountEntry> mounts_;
  std::vector<MountEntry> read_;
  std::deque<DeviceNumber> news_;
};

/// What a listener knows: disks by appearance time.
class Listener {
 public:
  void hear(const DiskEvent& event) {
    const std::string line = ModelBench::text(event);
    const std::size_t begin = 2, time = line.find('#'), end = line.find(' ', time);
    const std::string key = line.substr(time, end - time), disk = line.substr(begin, time - begin - 1);
    const std::string path = disk.substr(disk.find(' ') + 1);
    if (event.kind == DiskEvent::Kind::appeared) {
      EXPECT_TRUE(disks_.emplace(key, disk).second) << "appeared twice: " << line;
    } else {
      ASSERT_TRUE(disks_.contains(key)) << "unknown: " << line;
    }
    if (event.kind == DiskEvent::Kind::changed) {
      EXPECT_FALSE(event.changedKeys.empty()) << line;
      disks_[key] = disk;
    }
    if (event.kind == DiskEvent::Kind::disappeared) {
      EXPECT_EQ(disks_[key], disk) << "left with another description";
      disks_.erase(key);
    }
    for (const auto& [other, text] : disks_) {
      const bool samePath = event.kind != DiskEvent::Kind::disappeared && other != key && path != "none" &&
                            text.substr(text.find(' ') + 1) == path;
      EXPECT_FALSE(samePath) << "two disks at one path: " << line;
    }
  }

  std::multiset<std::string> disks() const {
    std::multiset<std::string> lines;
    for (const auto& [key, disk] : disks_) lines.insert(disk);
    return lines;
  }

 private:
  std::map<std::string, std::string> disks_;
};

/// One life of a machine whose devices cannot be read now and then; `probing` also lets probes answer late, not before
/// their time is up, or be deferred.
void live(unsigned seed, bool probing) {
  Machine machine(seed);
  ModelBench bench(probing);
  Listener listener;
  std::vector<ProbeRequest> asked;
  for (int step = 0; step < 60; ++step) {
    for (unsigned i = machine.pick(3); i > 0; --i) machine.doSomething(bench);
    if (machine.pick(2) == 0) machine.readDevices(bench);
    if (machine.pick(2) == 0) machine.readMounts(bench);
    for (const DiskEvent& event : bench.model.settle(bench.now)) listener.hear(event);
    for (ProbeRequest& request : bench.model.takeProbeRequests()) asked.push_back(std::move(request));
    if (machine.pick(3) == 0) {
      for (const ProbeRequest& request : std::exchange(asked, {})) {
        bench.model.probeFinished(request.device.number, request.ticket, request.device.facts);
      }
    }
    for (const ProbeRequest& request : asked) {
      if (machine.pick(4) == 0) bench.model.probeDeferred(request.device.number, request.ticket, bench.now);
    }
    if (machine.pick(8) == 0) bench.now += ProbeSchedule::kPatience;
    bench.isUnreadable = machine.pick(4) == 0;
    if (machine.pick(2) == 0) bench.model.readAgain();
  }
  bench.isUnreadable = false;
  machine.readDevices(bench);
  machine.readMounts(bench);
  bench.model.readAgain();
  for (int i = 0; i < 2; ++i, bench.now += ProbeSchedule::kPatience) {
    for (const DiskEvent& event : bench.model.settle(bench.now)) listener.hear(event);
    for (const ProbeRequest& request : bench.model.takeProbeRequests()) asked.push_back(request);
  }
  for (const ProbeRequest& request : asked)
    bench.model.probeFinished(request.device.number, request.ticket, request.device.facts);
  for (const DiskEvent& event : bench.model.settle(bench.now)) listener.hear(event);
  EXPECT_EQ(listener.disks(), machine.disks(bench));
  EXPECT_FALSE(bench.model.nextDeadline()) << "an idle model asks for no wake-up";
}

TEST(RandomMachines, AreKnownWhateverTheOrderOfNews) {
  for (unsigned seed = 1; seed <= 400 && !::testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    live(seed, /*probing=*/seed % 2 == 0);
  }
}

}  // namespace
}  // namespace kmv
