// SPDX-License-Identifier: MIT
// The monitor's lifetime, its cycle and the platform's statistics. What hosts report:
// KMVDriveActivityReports.cpp.
#include <KMVDriveLibrary/Exception.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/KMVDriveActivityMonitor.h>
#include <KMVDriveLibrary/KMVDriveKeys.h>

#include <algorithm>
#include <chrono>
#include <mutex>
#include <utility>

#include "activity/DriverMatches.h"
#include "activity/RootDrive.h"
#include "base/Fatal.h"
#include "base/KeptForEver.h"
#include "platform/Platform.h"

namespace {

/// Cycles up to this one announce nothing, whatever they measured: intended.
constexpr std::uint64_t kSilentCycles = 5;

std::chrono::nanoseconds secondsWithoutOverflow(std::uint64_t seconds) {
  constexpr auto kMost = static_cast<std::uint64_t>(std::chrono::nanoseconds::max().count() / 1'000'000'000);
  return std::chrono::seconds(std::min(seconds, kMost));
}

}  // namespace

/// What one look at the platform's statistics needs of the one before. Thread: the analysis queue.
class KMVDriveActivityMonitor::Measurement {
 public:
  Measurement() : reader_(kmv::Platform::current().ioRegistry().makeStatisticsReader()) {}

  void feed(KMVDriveIOActivityTracker& tracker, std::uint32_t port) {
    reader_->read(port, statistics_);
    if (!statistics_.wereDriversFound) return;
    followChanges();
    // One sample a driver: every volume of a disk gets the whole disk's counters.
    std::fill(samples_.begin(), samples_.end(), nullptr);
    for (const auto& [volume, driver] : matches_) {
      auto& sample = samples_[driver];
      if (sample == nullptr) sample = sampleOf(statistics_.drivers[driver]);
      if (sample != nullptr) tracker.updateStats(sample, statistics_.volumes[volume].url);
    }
  }

 private:
  void followChanges() {
    if (matchedGeneration_ == statistics_.generation) return;
    matches_ = kmv::activity::driverMatches(statistics_);
    samples_.assign(statistics_.drivers.size(), nullptr);
    matchedGeneration_ = statistics_.generation;
  }

  static KMVDriveIOActivityTracker::Sample sampleOf(const kmv::DriveStatistics::Driver& driver) {
    if (!driver.counters) return nullptr;
    auto sample =
        std::make_shared<DeviceIOStatistics>(driver.counters->bytesRead, driver.counters->bytesWritten);
    sample->setReadLatency(driver.counters->readLatency);
    sample->setWriteLatency(driver.counters->writeLatency);
    return sample;
  }

  std::unique_ptr<kmv::DriveStatisticsReader> reader_;
  kmv::DriveStatistics statistics_;
  std::optional<std::uint64_t> matchedGeneration_;
  std::vector<kmv::activity::DriverMatch> matches_;
  std::vector<KMVDriveIOActivityTracker::Sample> samples_;  // of this cycle, by driver
};

KMVDriveActivityMonitor& KMVDriveActivityMonitor::defaultMonitor() {
  static auto* const monitor = [] {
    auto* made = new KMVDriveActivityMonitor;  // never destroyed: its cycle never ends
    made->runDriveAnalysis();
    return made;
  }();
  return *monitor;
}

KMVDriveActivityMonitor::KMVDriveActivityMonitor() {
  auto& platform = kmv::Platform::current();
  const std::shared_ptr<kmv::NetServiceBrowser> browser = platform.makeServiceBrowser();
  browser->setIncludesPeerToPeer(true);
  browser->setDelegate(this);
  browser->searchForServicesOfType("_services._dns-sd._udp.", "");
  setServiceBrowser(browser);
  setDiskSession(kmv::keptForEver(platform.makeDiskArbitrationSession()));
  setIoServiceTracker(std::make_shared<KMVDriveIOActivityTracker>());
  setAppTracker(std::make_shared<KMVDriveIOActivityTracker>());
  setDriveAnalysisQueue(platform.queues().makeSerialQueue("analysis queue", kmv::QualityOfService::core));
  setRefreshFrequency(1);
  setLoadCycles(0);
  setAppIOLookup(std::make_shared<TotalsBySender>());
  measurement_ = std::make_unique<Measurement>();
}

KMVDriveActivityMonitor::~KMVDriveActivityMonitor() {
  if (openWork_.isOpen())
    kmv::fatal("KMVDriveActivityMonitor: destroyed while it measures, listens or has a report to count");
  if (const auto browser = serviceBrowser()) browser->setDelegate(nullptr);
}

/// The token goes with the run, not with the task: a queue may destroy that later.
void KMVDriveActivityMonitor::enqueue(kmv::SerialQueue::Task task) {
  driveAnalysisQueue()->async([task = std::move(task), open = openWork_.open()]() mutable {
    task();
    open = nullptr;
  });
}

void KMVDriveActivityMonitor::runDriveAnalysis() {
  enqueue([this] { runCycle(); });
}

void KMVDriveActivityMonitor::runCycle() {
  refreshDriveStatistics();
  refreshAppSuppliedIOStatistics();
  ++loadCycles_;
  if (loadCycles() > kSilentCycles) postActivity();
  // The pause begins when the work is done.
  driveAnalysisQueue()->after(secondsWithoutOverflow(std::max<std::uint64_t>(refreshFrequency(), 1)),
                              [this, open = openWork_.open()] { runDriveAnalysis(); });
}

/// OBSERVERS RUN ON THE ANALYSIS QUEUE, on purpose.
void KMVDriveActivityMonitor::postActivity() {
  std::map<kmv::URL, std::shared_ptr<KMVDriveIOActivity>> active;
  for (auto& [drive, activity] : ioServiceTracker()->activityLookup()->snapshot())
    active.emplace_hint(active.end(), drive, std::move(activity));
  const auto reported = appTracker()->activityLookup();
  for (const auto& [drive, sample] : appTracker()->cachedIOStatistics()->snapshot()) {
    if (auto activity = reported->find(drive))
      active.emplace(drive, std::move(*activity));  // nothing where the platform measured: that counts
  }
  if (active.empty()) return;
  kmv::Dictionary userInfo;
  for (auto& [drive, activity] : active) userInfo.set(drive.absoluteString(), std::move(activity));
  const std::shared_ptr<kmv::Object> self(std::shared_ptr<void>(), this);  // not owned: it measures for ever
  kmv::NotificationCenter::defaultCenter().post(
      {std::string(kDiskArbiterDriveActivityDidUpdateNotification), self,
       std::make_shared<const kmv::Dictionary>(std::move(userInfo))});
}

void KMVDriveActivityMonitor::refreshDriveStatistics() {
  refreshIOServiceDriveStatistics();
}

void KMVDriveActivityMonitor::refreshIOServiceDriveStatistics() {
  const auto tracker = ioServiceTracker();
  tracker->activityLookup()->removeAll();
  measurement_->feed(*tracker, libtop_master_port());
}

void KMVDriveActivityMonitor::driveMonitoredByIOServices(std::function<void(const URLs& drives)> completion) {
  enqueue([this, completion = std::move(completion)] {
    URLs drives;
    for (auto& [drive, activity] : ioServiceTracker()->activityLookup()->snapshot()) drives.push_back(drive);
    completion(drives);
  });
}

bool KMVDriveActivityMonitor::ioServicesIsTrackingDrive(const kmv::URL& drive) const {
  return ioServiceTracker()->activityLookup()->contains(drive);  // whose keys are standardised
}

void KMVDriveActivityMonitor::enumerateFilePathsWhichCannotBeTrackedByIOServicesInList(
    URLs list, std::function<void(const std::optional<URLs>& untracked)> didComplete) {
  enqueue([this, list = std::move(list), didComplete = std::move(didComplete)] {
    const auto measured = ioServiceTracker()->cachedIOStatistics();
    URLs untracked;
    for (const kmv::URL& file : list) {
      const auto drive = kmv::activity::rootDriveOf(file);
      if (!drive || !measured->contains(drive->standardized())) untracked.push_back(file);
    }
    didComplete(untracked.empty() ? std::nullopt : std::optional(std::move(untracked)));
  });
}

// Accepted and ignored, as their declarations say.
void KMVDriveActivityMonitor::addDriveObserver(const std::shared_ptr<kmv::Object>&) {}
void KMVDriveActivityMonitor::removeDriveObserver(const std::shared_ptr<kmv::Object>&) {}
void KMVDriveActivityMonitor::pause() {}
void KMVDriveActivityMonitor::resume() {}
void KMVDriveActivityMonitor::requestUpdated() {}
void KMVDriveActivityMonitor::netServiceBrowserDidFindDomain(kmv::NetServiceBrowser*, const std::string&,
                                                             bool) {}
void KMVDriveActivityMonitor::netServiceBrowserDidFindService(kmv::NetServiceBrowser*, const std::string&,
                                                              bool) {}

namespace kmv {

std::map<URL, std::shared_ptr<KMVDriveIOActivity>> driveActivities(const Notification& notification) {
  std::map<URL, std::shared_ptr<KMVDriveIOActivity>> activities;
  if (notification.name != kDiskArbiterDriveActivityDidUpdateNotification || notification.userInfo == nullptr)
    return activities;
  for (const auto& [text, value] : *notification.userInfo) {
    const auto url = URL::fromString(text);
    auto activity = std::dynamic_pointer_cast<KMVDriveIOActivity>(value.asObject());
    if (url && activity != nullptr) activities.emplace_hint(activities.end(), *url, std::move(activity));
  }
  return activities;
}

}  // namespace kmv
