// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/DescriptionKeys.h>

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/linux/session/DiskModel.h"

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
  entry.id = entry.order = id;
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
               [](const MountEntry&) { return true; }, [this] { return ++lastTime_; }, probing}) {
    model.startUpFinished();
  }

  void plug(const BlockDevice& device) {
    present[device.number] = device;
    model.deviceSeen(device);
  }
  void unplug(DeviceNumber number) {
    present.erase(number);
    model.deviceRemoved(number);
  }
  void attach(const MountEntry& entry) { model.mountsChanged({{}, {entry}}); }
  void detach(const MountEntry& entry) { model.mountsChanged({{entry}, {}}); }
  void move(const MountEntry& from, const MountEntry& to) { model.mountsChanged({{from}, {to}}); }

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
  DiskModel::Clock::time_point now{};

 private:
  std::optional<BlockDevice> visibleBehind(const MountEntry& entry) const {
    const DeviceNumber number = entry.device.major != 0 ? entry.device : DeviceNumber{8, 0};
    const auto found = present.find(number);
    return found == present.end() ? std::nullopt : std::optional(found->second);
  }

  double lastTime_ = 0;

 public:
  DiskModel model;
};

}  // namespace kmv::test
