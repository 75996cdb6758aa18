// SPDX-License-Identifier: MIT
#include "platform/macos/MacDriveStatistics.h"

#include <IOKit/storage/IOBlockStorageDriver.h>

#include <utility>

#include "platform/macos/MountTable.h"
#include "platform/macos/RegistryEntries.h"

namespace kmv::macos {
namespace {

/// The kernel counts without a sign, the platform's numbers have one.
std::uint64_t countIn(const Dictionary& statistics, const char* key) {
  const Value* const count = statistics.find(key);
  return count == nullptr ? 0 : count->unsignedValue();
}

std::optional<DriverCounters> countersOf(const IOHandle& driver) {
  const auto statistics = propertyOf(driver, kIOBlockStorageDriverStatisticsKey);
  const Dictionary* const all = statistics ? statistics->asDictionary() : nullptr;
  if (all == nullptr) return std::nullopt;
  return DriverCounters{.bytesRead = countIn(*all, kIOBlockStorageDriverStatisticsBytesReadKey),
                        .bytesWritten = countIn(*all, kIOBlockStorageDriverStatisticsBytesWrittenKey),
                        .readLatency = countIn(*all, kIOBlockStorageDriverStatisticsLatentReadTimeKey),
                        .writeLatency = countIn(*all, kIOBlockStorageDriverStatisticsLatentWriteTimeKey),
                        .reads = countIn(*all, kIOBlockStorageDriverStatisticsReadsKey),
                        .writes = countIn(*all, kIOBlockStorageDriverStatisticsWritesKey)};
}

std::vector<struct statfs> mountsThatUsersSee() {
  std::vector<struct statfs> mounts = mountTable();
  std::erase_if(mounts, [](const struct statfs& mount) { return (mount.f_flags & MNT_DONTBROWSE) != 0; });
  return mounts;
}

}  // namespace

void MacDriveStatistics::read(std::uint32_t port, DriveStatistics& statistics) {
  const AutoreleaseScope scope;
  const auto drivers = servicesMatching(port, IOServiceMatching(kIOBlockStorageDriverClass));
  statistics.wereDriversFound = drivers.has_value();
  if (!drivers) return;
  readDrivers(*drivers, statistics);
  readVolumes(statistics);
  // An image has a driver too, and is counted beside the disk that holds its file.
  if (statistics.countsPhysicalDisks) statistics.physicalDisks = statistics.drivers;
}

void MacDriveStatistics::readDrivers(const std::vector<IOHandle>& entries, DriveStatistics& statistics) {
  std::map<std::uint64_t, std::string> paths;
  statistics.drivers.clear();
  for (const IOHandle& entry : entries) {
    const auto number = numberOf(entry);
    if (!number) continue;  // withdrawn since the search
    const auto known = paths_.find(*number);
    const std::string& path = paths[*number] = known == paths_.end() ? pathOf(entry) : known->second;
    areDriversNew_ = areDriversNew_ || known == paths_.end();
    statistics.drivers.push_back({path, countersOf(entry)});
  }
  areDriversNew_ = areDriversNew_ || paths.size() != paths_.size();
  paths_ = std::move(paths);
}

void MacDriveStatistics::readVolumes(DriveStatistics& statistics) {
  std::vector<Mount> mounts;
  for (const struct statfs& mount : mountsThatUsersSee())
    mounts.emplace_back(mount.f_fsid.val[0], mount.f_fsid.val[1], mount.f_mntonname, mount.f_mntfromname);
  if (std::exchange(areDriversNew_, false) || mounts != mounts_) {
    ++generation_;
    volumes_.clear();
    for (const auto& [number, kind, point, source] : mounts) {
      const URL url = URL::fileURLWithPath(point, /*isDirectory=*/true);
      volumes_.push_back({url, mediaPathOf(url)});
    }
    mounts_ = std::move(mounts);
  }
  if (std::exchange(statistics.generation, generation_) != generation_) statistics.volumes = volumes_;
}

std::string MacDriveStatistics::mediaPathOf(const URL& volume) const {
  const auto disk = CF<DADiskRef>::adopt(
      DADiskCreateFromVolumePath(kCFAllocatorDefault, session_.get(), createURL(volume).get()));
  if (!disk) return {};
  const IOHandle medium(DADiskCopyIOMedia(disk.get()));
  return medium ? pathOf(medium) : std::string();
}

}  // namespace kmv::macos
