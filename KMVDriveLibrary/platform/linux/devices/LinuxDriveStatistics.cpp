// SPDX-License-Identifier: MIT
#include "platform/linux/devices/LinuxDriveStatistics.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <set>
#include <utility>

#include "base/Text.h"
#include "platform/posix/SystemFiles.h"

namespace kmv {
namespace {

constexpr std::uint64_t kBytesPerSector = 512;
constexpr std::uint64_t kNanosecondsPerMillisecond = 1'000'000;
/// A line of /proc/diskstats costs the kernel about half of what a read of one device's own file does.
constexpr std::size_t kLinesPerFile = 2;
constexpr std::size_t kFirstTableBytes = 16 * 1024;

/// An upper bound of the files that are kept open: a small share of the descriptors, which are the host's.
std::size_t mostFiles() {
  constexpr rlim_t kShare = 16;
  rlimit limit{};
  return ::getrlimit(RLIMIT_NOFILE, &limit) == 0 ? static_cast<std::size_t>(limit.rlim_cur / kShare) : 0;
}

/// Places that the system keeps for itself, and what a dot hides; never the root.
bool isHiddenPlace(std::string_view point) {
  return point == "/boot" || point == "/boot/efi" || point.find("/.") != std::string_view::npos;
}

}  // namespace

LinuxDriveStatistics::LinuxDriveStatistics(const LinuxOptions& options,
                                           const std::shared_ptr<MountTable>& mounts)
    : options_(options), devices_(options), stacks_(options, mounts), mounts_(mounts) {}

LinuxDriveStatistics::~LinuxDriveStatistics() = default;

void LinuxDriveStatistics::read(std::uint32_t, DriveStatistics& statistics) {
  countsPhysicalDisks_ = statistics.countsPhysicalDisks;
  followMounts();
  countDisks();
  statistics.wereDriversFound = planned_.has_value();
  if (statistics.generation != generation_) {
    statistics.generation = generation_;
    statistics.volumes = volumes_;
    statistics.drivers.clear();
    for (const Plan& driver : drivers_) statistics.drivers.push_back({driver.path, std::nullopt});
    statistics.physicalDisks.clear();
    for (const Plan& disk : physicalDisks_) statistics.physicalDisks.push_back({disk.path, std::nullopt});
  }
  for (std::size_t i = 0; i < drivers_.size(); ++i) statistics.drivers[i].counters = sumOf(drivers_[i]);
  for (std::size_t i = 0; i < physicalDisks_.size(); ++i)
    statistics.physicalDisks[i].counters = sumOf(physicalDisks_[i]);
}

/// Plans anew when a volume came, went or moved, and at first. The table is only copied from under its lock. When
/// descriptors are exhausted the last plan stays, and the next read tries again.
void LinuxDriveStatistics::followMounts() try {
  std::vector<MountEntry> mounted;
  std::optional<std::uint64_t> generation = planned_;
  mounts_.read([&](const MountDeltas& deltas, const MountTree& tree) {
    for (const auto& delta : deltas) {
      for (const MountEntry& entry : delta->detached) media_.erase(entry.id);
    }
    generation = tree.volumeGeneration();
    if (generation == planned_) return;
    tree.forEach([&](const MountEntry& mount, std::string_view rule) {
      if (rule.empty()) mounted.push_back(mount);
    });
  });
  if (generation == planned_) return;
  planDrivers(mounted);
  planned_ = generation;
} catch (const NotReadable&) {
}

void LinuxDriveStatistics::planDrivers(const std::vector<MountEntry>& mounted) {
  std::vector<DriveStatistics::Volume> volumes;
  std::map<std::string, std::vector<std::string>> disksOfDriver;
  for (const MountEntry& mount : mounted) {
    const Medium& medium = mediumOf(mount);
    if (medium.isHidden) continue;
    volumes.push_back({URL::fileURLWithPath(mount.point, /*isDirectory=*/true), medium.mediaPath});
    if (!medium.driverPath.empty()) disksOfDriver.emplace(medium.driverPath, medium.disks);
  }
  std::vector<Plan> drivers;
  drivers.reserve(disksOfDriver.size());
  for (auto& [path, disks] : disksOfDriver) drivers.push_back({path, std::move(disks)});
  std::vector<Plan> physicalDisks = countsPhysicalDisks_ ? physicalDisksBelow(drivers) : std::vector<Plan>();
  std::vector<Plan> all = drivers;
  all.insert(all.end(), physicalDisks.begin(), physicalDisks.end());
  chooseDisks(all);
  ++generation_;
  volumes_ = std::move(volumes);
  drivers_ = std::move(drivers);
  physicalDisks_ = std::move(physicalDisks);
}

std::vector<LinuxDriveStatistics::Plan> LinuxDriveStatistics::physicalDisksBelow(
    const std::vector<Plan>& drivers) const {
  std::set<std::string> names;
  for (const Plan& driver : drivers) {
    for (const std::string& disk : driver.disks) {
      for (const StorageDevice& below : stacks_.below(disk)) names.insert(below.name);
    }
  }
  std::vector<Plan> plans;
  plans.reserve(names.size());
  for (const std::string& name : names) plans.push_back({name, {name}});
  return plans;
}

const LinuxDriveStatistics::Medium& LinuxDriveStatistics::mediumOf(const MountEntry& mount) {
  const auto known = media_.find(mount.id);
  if (known != media_.end() && !known->second.mayGrow) return known->second;
  return media_.insert_or_assign(mount.id, mediumBehind(mount)).first->second;
}

LinuxDriveStatistics::Medium LinuxDriveStatistics::mediumBehind(const MountEntry& mount) const {
  Medium medium;
  const auto device = devices_.readBehind(mount);
  medium.isHidden = mount.point != "/" && (isHiddenPlace(mount.point) || (device && device->hiddenFromUsers));
  if (!device) return medium;
  medium.mayGrow = mount.device.major == 0;
  const auto placeOf = [&](const std::string& folder) {
    return folder.substr(options_.sysRoot.size()) + "/";
  };
  if (const auto system = stacks_.systemOver(device->name); system && system->devices.size() > 1) {
    medium.driverPath = medium.mediaPath = "/devices/virtual/kmv/btrfs/" + system->id + "/";
    std::set<std::string> disks;
    for (const std::string& member : system->devices) {
      const std::string folder = stacks_.wholeFolderOf(member);
      if (!folder.empty()) disks.insert(std::string(lastComponent(folder)));
    }
    medium.disks.assign(disks.begin(), disks.end());
    return medium;
  }
  const std::string folder = stacks_.folderOf(device->name), whole = stacks_.wholeFolderOf(device->name);
  if (folder.empty() || whole.empty()) return medium;
  medium.mediaPath = placeOf(folder);
  medium.driverPath = placeOf(whole);
  medium.disks = {std::string(lastComponent(whole))};
  return medium;
}

/// Decides which way of counting is the cheaper one now. Names may have passed to other devices: nothing of the former
/// disks is kept. The files are opened when they are read.
void LinuxDriveStatistics::chooseDisks(const std::vector<Plan>& drivers) {
  std::map<std::string, Disk> disks;
  for (const Plan& driver : drivers) {
    for (const std::string& name : driver.disks) {
      const std::string number = readAttribute(options_.sysRoot + "/class/block/" + name + "/dev");
      disks[name].number = parseDeviceNumber(number).value_or(DeviceNumber());
    }
  }
  const std::string all = readFile(options_.procRoot + "/diskstats").value_or(std::string());
  const auto lines = static_cast<std::size_t>(std::count(all.begin(), all.end(), '\n'));
  const bool isTableCheaper = disks.size() * kLinesPerFile >= lines;
  countsFromTable_ = lines > 0 && (isTableCheaper || disks.size() > mostFiles());
  table_.reset();
  disks_ = std::move(disks);
}

std::string LinuxDriveStatistics::statFileOf(const std::string& disk) const {
  return options_.sysRoot + "/class/block/" + disk + "/stat";
}

void LinuxDriveStatistics::countDisks() {
  for (auto& [name, disk] : disks_) disk.counted.reset();
  if (countsFromTable_) {
    countFromTable();
  } else {
    countFromFiles();
  }
}

void LinuxDriveStatistics::countFromFiles() {
  char text[512];
  for (auto& [name, disk] : disks_) {
    ssize_t got = disk.file ? ::pread(disk.file.get(), text, sizeof text, 0) : -1;
    if (got <= 0) {
      // The device went, and another may have its name and number, mounted before anybody looked.
      disk.file = FileDescriptor(::open(statFileOf(name).c_str(), O_RDONLY | O_CLOEXEC));
      got = disk.file ? ::pread(disk.file.get(), text, sizeof text, 0) : -1;
    }
    if (got > 0) disk.counted = parseBlockStatistics({text, static_cast<std::size_t>(got)});
  }
}

void LinuxDriveStatistics::countFromTable() {
  if (!table_)
    table_ = FileDescriptor(::open((options_.procRoot + "/diskstats").c_str(), O_RDONLY | O_CLOEXEC));
  if (!table_) return;
  if (text_.empty()) text_.resize(kFirstTableBytes);
  std::size_t filled = 0;
  for (;;) {
    const ssize_t got =
        ::pread(table_.get(), text_.data() + filled, text_.size() - filled, static_cast<off_t>(filled));
    if (got <= 0) break;
    filled += static_cast<std::size_t>(got);
    if (filled == text_.size()) text_.resize(2 * text_.size());
  }
  std::map<DeviceNumber, Disk*> byNumber;
  for (auto& [name, disk] : disks_) byNumber.emplace(disk.number, &disk);
  std::string_view rest(text_.data(), filled);
  while (const auto line = takeDiskStatisticsLine(rest)) {
    const auto disk = byNumber.find(line->number);
    if (disk != byNumber.end()) disk->second->counted = line->statistics;
  }
}

/// Of several disks all that can be counted; none when none can. They are busy for the average of their times.
std::optional<DriverCounters> LinuxDriveStatistics::sumOf(const Plan& driver) const {
  DriverCounters sum;
  std::uint64_t busy = 0, disks = 0;
  for (const std::string& name : driver.disks) {
    const auto& counted = disks_.at(name).counted;
    if (!counted) continue;
    ++disks;
    sum.bytesRead += counted->sectorsRead * kBytesPerSector;
    sum.bytesWritten += counted->sectorsWritten * kBytesPerSector;
    sum.readLatency += counted->millisecondsReading * kNanosecondsPerMillisecond;
    sum.writeLatency += counted->millisecondsWriting * kNanosecondsPerMillisecond;
    sum.reads += counted->reads;
    sum.writes += counted->writes;
    busy += counted->millisecondsBusy * kNanosecondsPerMillisecond;
  }
  if (disks == 0) return std::nullopt;
  sum.busy = busy / disks;
  return sum;
}

}  // namespace kmv
