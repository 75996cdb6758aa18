// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/LoadMeter.h>

#include <algorithm>
#include <chrono>
#include <string>
#include <utility>

#include "activity/DriverMatches.h"
#include "platform/Platform.h"

namespace kmv {
namespace {

constexpr double kNanosecondsPerSecond = 1e9;

/// The difference of one counter; 0 when it went back, as with another disk of the same name.
std::uint64_t grown(std::uint64_t before, std::uint64_t now) {
  return now < before ? 0 : now - before;
}

double averageSeconds(std::uint64_t nanoseconds, std::uint64_t operations) {
  return operations == 0
             ? 0
             : static_cast<double>(nanoseconds) / kNanosecondsPerSecond / static_cast<double>(operations);
}

/// What the counters grew by; `readLatency` and `writeLatency` are sums.
DriverCounters difference(const DriverCounters& before, const DriverCounters& now) {
  DriverCounters grew{grown(before.bytesRead, now.bytesRead),
                      grown(before.bytesWritten, now.bytesWritten),
                      grown(before.readLatency, now.readLatency),
                      grown(before.writeLatency, now.writeLatency),
                      grown(before.reads, now.reads),
                      grown(before.writes, now.writes),
                      std::nullopt};
  if (before.busy && now.busy) grew.busy = grown(*before.busy, *now.busy);
  return grew;
}

DriveLoad loadOf(const DriverCounters& grew, double seconds) {
  DriveLoad load{seconds,
                 grew.bytesRead,
                 grew.bytesWritten,
                 grew.reads,
                 grew.writes,
                 averageSeconds(grew.readLatency, grew.reads),
                 averageSeconds(grew.writeLatency, grew.writes),
                 std::nullopt};
  if (grew.busy && seconds > 0)
    load.utilisation = std::min(1.0, static_cast<double>(*grew.busy) / kNanosecondsPerSecond / seconds);
  return load;
}

void add(DriverCounters& sum, const DriverCounters& more) {
  sum.bytesRead += more.bytesRead;
  sum.bytesWritten += more.bytesWritten;
  sum.readLatency += more.readLatency;
  sum.writeLatency += more.writeLatency;
  sum.reads += more.reads;
  sum.writes += more.writes;
  if (more.busy) sum.busy = std::max(sum.busy.value_or(0), *more.busy);
}

}  // namespace

struct LoadMeter::Sample {
  std::chrono::nanoseconds time;
  std::map<URL, DriverCounters> drives;
  std::map<std::string, DriverCounters> disks;
};

LoadMeter::LoadMeter()
    : reader_(Platform::current().ioRegistry().makeStatisticsReader()),
      statistics_(std::make_unique<DriveStatistics>()) {
  read();
}

LoadMeter::~LoadMeter() = default;

LoadMeter::Loads LoadMeter::read() {
  statistics_->countsPhysicalDisks = true;
  reader_->read(0, *statistics_);
  Sample now{Platform::current().clock().monotonicNow(), {}, {}};
  for (const auto& [volume, driver] : activity::driverMatches(*statistics_)) {
    if (const auto& counters = statistics_->drivers[driver].counters)
      now.drives.insert_or_assign(statistics_->volumes[volume].url, *counters);
  }
  for (const auto& [path, counters] : statistics_->physicalDisks) {
    if (counters) now.disks.emplace(path, *counters);
  }
  Loads loads = last_ == nullptr ? Loads() : loadsBetween(*last_, now);
  last_ = std::make_unique<Sample>(std::move(now));
  return loads;
}

LoadMeter::Loads LoadMeter::loadsBetween(const Sample& before, const Sample& now) {
  Loads loads;
  const double seconds = std::chrono::duration<double>(now.time - before.time).count();
  for (const auto& [url, counters] : now.drives) {
    const auto known = before.drives.find(url);
    if (known != before.drives.end())
      loads.drives.emplace(url, loadOf(difference(known->second, counters), seconds));
  }
  DriverCounters sum;
  for (const auto& [path, counters] : now.disks) {
    const auto known = before.disks.find(path);
    if (known != before.disks.end()) add(sum, difference(known->second, counters));
  }
  loads.allDisks = loadOf(sum, seconds);
  return loads;
}

}  // namespace kmv
