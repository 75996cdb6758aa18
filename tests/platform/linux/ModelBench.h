// SPDX-License-Identifier: MIT
#pragma once

#include "platform/linux/session/DiskModel.h"
#include "platform/posix/SystemFiles.h"
#include "support/Testing.h"

namespace kmv::test {

inline BlockDevice disk(unsigned minor, const std::string& name, std::uint64_t medium = 1) {
  BlockDevice device;
  device.number = device.wholeNumber = {8, minor};
  device.name = device.node = name;
  device.bytes = 4096;
  device.mediumSequence = medium;
  device.inDatabase = true;
  device.facts.type = "ext4";
  device.facts.usage = "filesystem";
  device.facts.label = "L";
  return device;
}

inline MountEntry mount(std::uint64_t id, DeviceNumber device, const std::string& point,
                        const std::string& kind = "ext4", const std::string& root = "/") {
  MountEntry entry;
  entry.id = entry.reusedId = entry.order = id;
  entry.parent = 1;
  entry.device = device;
  entry.root = root;
  entry.point = point;
  entry.kind = kind;
  entry.source = kind == "btrfs" ? "/dev/sda" : "source";
  if (kind == "btrfs") entry.superOptions = "rw,subvol=" + root;
  return entry;
}

/// A model with the machine that it asks, events as short texts: "+ sda /a #1" appeared, "- ..." disappeared,
/// "~ ..." changed, with the changed keys behind; "#1" is the appearance time.
class ModelBench {
 public:
  explicit ModelBench(bool probing = false)
      : model({[this](const MountEntry& entry) { return visibleBehind(entry); },
               [](const MountEntry&, bool) { return true; }, [this] { return ++lastTime_; }, probing}) {
    model.startUpFinished();
  }

  void plug(const BlockDevice& device) {
    present[device.number] = device;
    model.deviceSeen(device);
  }

  /// Carries out steps that "; " separates. Devices are "sda" to "sdz"; WHAT is one of them, or a kind of
  /// file system without a device, or "btrfs:/root" on sda.
  /// "KIND=source" names another source.
  ///   plug NAME [MEDIUM]   insert NAME [MEDIUM] (nobody hears of it)   unplug NAME
  ///   mount ID WHAT POINT [PARENT]   umount ID   replace ID ID2 WHAT POINT (in one difference)
  void does(const std::string& steps) {
    std::istringstream all(steps);
    for (std::string step; std::getline(all >> std::ws, step, ';');) doOne(step);
  }

  std::vector<std::string> told() {
    std::vector<std::string> lines;
    for (const DiskEvent& event : model.settle(now)) lines.push_back(text(event));
    return lines;
  }

  static std::string text(const DiskEvent& event) {
    const Dictionary& disk = event.description;
    const std::string* name = disk.text(key::kMediaBSDName);
    const URL* path = disk.url(key::kVolumePath);
    std::string line(1, "+~-"[static_cast<int>(event.kind)]);
    line += " " + (name == nullptr ? std::string("?") : *name) + " " +
            (path == nullptr ? std::string("none") : path->path());
    line += " #" + std::to_string(static_cast<int>(disk.doubleValue(key::kAppearanceTime)));
    for (const std::string& changed : event.changedKeys) line += " " + changed;
    return line;
  }

  std::map<DeviceNumber, BlockDevice> present;
  bool isUnreadable = false;
  DiskModel::Clock::time_point now{};

 private:
  static DeviceNumber numberOf(const std::string& name) {
    if (!name.starts_with("sd")) return {0, 40};
    return {8, static_cast<unsigned>(name[2] - 'a')};
  }
  static MountEntry mountOf(std::istringstream& words) {
    std::uint64_t id = 0, parent = 0;
    std::string what, point, root = "/";
    words >> id >> what >> point;
    std::string source;
    if (const std::size_t equals = what.find('='); equals != std::string::npos) {
      source = what.substr(equals + 1);
      what.resize(equals);
    }
    if (const std::size_t colon = what.find(':'); colon != std::string::npos) {
      root = what.substr(colon + 1);
      what.resize(colon);
    }
    MountEntry entry = mount(id, numberOf(what), point, what.starts_with("sd") ? "ext4" : what, root);
    if (words >> parent) entry.parent = parent;
    if (!source.empty()) entry.source = source;
    return entry;
  }
  void doOne(const std::string& step) {
    std::istringstream words(step);
    std::string verb, name;
    words >> verb;
    MountDelta delta;
    if (verb == "plug" || verb == "insert" || verb == "unplug") {
      std::uint64_t medium = 1;
      words >> name >> medium;
      const BlockDevice device = disk(numberOf(name).minor, name, words ? medium : 1);
      if (verb == "plug") return plug(device);
      if (verb == "insert") return (void)(present[device.number] = device);
      present.erase(device.number);
      return model.deviceRemoved(device.number);
    }
    std::uint64_t id = 0;
    if (verb != "mount") {
      words >> id;
      delta.detached = {mounts_.at(id)};
    }
    if (verb == "mount" || verb == "replace") delta.attached = {mountOf(words)};
    if (id != 0) mounts_.erase(id);
    for (const MountEntry& entry : delta.attached) mounts_[entry.id] = entry;
    model.mountsChanged(delta);
  }
  std::optional<BlockDevice> visibleBehind(const MountEntry& entry) const {
    if (isUnreadable) throw NotReadable("no descriptor is left");
    const DeviceNumber number = entry.device.major != 0 ? entry.device : DeviceNumber{8, 0};
    const auto found = present.find(number);
    return found == present.end() ? std::nullopt : std::optional(found->second);
  }

  double lastTime_ = 0;
  std::map<std::uint64_t, MountEntry> mounts_;

 public:
  DiskModel model;
};

}  // namespace kmv::test
