// SPDX-License-Identifier: MIT
#pragma once

#include <KMVDriveLibrary/AtomicProperty.h>
#include <KMVDriveLibrary/Export.h>
#include <KMVDriveLibrary/KMVDriveIOActivityTracker.h>
#include <KMVDriveLibrary/NetServiceBrowser.h>
#include <KMVDriveLibrary/NotificationCenter.h>
#include <KMVDriveLibrary/OpenWork.h>
#include <KMVDriveLibrary/Queue.h>
#include <KMVDriveLibrary/RequiredProperty.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kmv {
class DiskArbitrationSession;
}

/// Measures in cycles how many bytes each drive read and wrote, and announces it with
/// `kDiskArbiterDriveActivityDidUpdateNotification`.
/// Its sources are the platform's statistics of block-storage drivers and, for drives that have none
/// (network, FUSE), what the host reports.
///
/// Life:    `defaultMonitor()` makes it and begins to measure; nothing stops it.
///          Any other monitor must live as long as the process once it measures or listens for updates, and
///          until its queue has run what it was asked or told; destroyed earlier, it stops the process.
/// Threads: every member may be called from any thread.
///          All measuring runs on `driveAnalysisQueue`, and so do completions and the notification's
///          observers.
class KMV_EXPORT KMVDriveActivityMonitor : public kmv::Object, public kmv::NetServiceBrowserDelegate {
 public:
  using URLs = std::vector<kmv::URL>;
  using Totals = kmv::LiveDictionary<kmv::URL, std::shared_ptr<DeviceIOStatistics>>;
  using TotalsBySender = kmv::LiveDictionary<std::string, std::shared_ptr<Totals>>;

  /// The monitor of the process; the first call makes it and begins the cycles.
  /// Selector: +defaultMonitor
  static KMVDriveActivityMonitor& defaultMonitor();

  /// A monitor that does not measure yet.
  /// Hosts use `defaultMonitor`.
  /// Selector: init
  KMVDriveActivityMonitor();
  ~KMVDriveActivityMonitor() override;
  KMVDriveActivityMonitor(const KMVDriveActivityMonitor&) = delete;
  KMVDriveActivityMonitor& operator=(const KMVDriveActivityMonitor&) = delete;

  /// Queues a cycle.
  /// Each cycle schedules the next one `refreshFrequency` seconds after its end, for ever.
  /// The first five cycles announce nothing, whatever they measure, on purpose; a later one announces what
  /// moved, and nothing when nothing did.
  /// The notification's object is the monitor; its user info has a `KMVDriveIOActivity` for each active drive
  /// under the text of the drive's standardised URL (see `kmv::driveActivities`).
  /// Selector: runDriveAnalysis
  void runDriveAnalysis();

  /// The parts of a cycle, for its own use.
  /// Thread: `driveAnalysisQueue`.
  /// Selector: refreshDriveStatistics
  /// Selector: refreshIOServiceDriveStatistics
  /// Selector: refreshAppSuppliedIOStatistics
  void refreshDriveStatistics();
  void refreshIOServiceDriveStatistics();
  void refreshAppSuppliedIOStatistics();

  /// Completes with the standardised URLs of the drives on which the platform measured activity in the latest
  /// cycle, in ascending order.
  /// Selector: driveMonitoredByIOServices:
  void driveMonitoredByIOServices(std::function<void(const URLs& drives)> completion);

  /// True when that list has this URL, which is compared as it stands: give a standardised one.
  /// Never blocks.
  /// Selector: ioServicesIsTrackingDrive:
  bool ioServicesIsTrackingDrive(const kmv::URL& drive) const;

  /// Completes with those of `list` whose drives the platform never measured, in their order; with nothing
  /// when it measured all.
  /// Asks the registry for each drive, on the queue.
  /// Selector: enumerateFilePathsWhichCannotBeTrackedByIOServicesInList:didComplete:
  void enumerateFilePathsWhichCannotBeTrackedByIOServicesInList(
      URLs list, std::function<void(const std::optional<URLs>& untracked)> didComplete);

  /// Accepted and ignored, on purpose: observers are served through the notification only, and the cycle
  /// cannot be paused.
  /// Selector: addDriveObserver:
  /// Selector: removeDriveObserver:
  /// Selector: pause
  /// Selector: resume
  /// Selector: requestUpdated
  void addDriveObserver(const std::shared_ptr<kmv::Object>& observer);
  void removeDriveObserver(const std::shared_ptr<kmv::Object>& observer);
  void pause();
  void resume();
  void requestUpdated();

  // --- What the host measures itself. ---

  /// Reports the bytes that the sender `by` moved on a drive since its last report.
  /// Ignored for a drive on which the platform measured activity in the latest cycle.
  /// Thread: any; never blocks.
  /// Selector: appBytesWereUpdated:onDrive:by:wasReadIO:
  /// Selector: appBytesWereRead:onDrive:by:
  /// Selector: appBytesWereWritten:onDrive:by:
  void appBytesWereUpdatedOnDrive(std::uint64_t bytes, const kmv::URL& drive, std::string_view by,
                                  bool wasReadIO);
  void appBytesWereReadOnDrive(std::uint64_t bytes, const kmv::URL& drive, std::string_view by);
  void appBytesWereWrittenOnDrive(std::uint64_t bytes, const kmv::URL& drive, std::string_view by);

  /// The same for the drive that holds a file.
  /// The registry is asked on the queue; a file on an unknown drive is ignored.
  /// A path through a dead server stalls the cycles; reports on drives do not.
  /// Selector: appBytesWereUpdated:onFile:by:wasReadIO:
  /// Selector: appBytesWereRead:onFile:by:
  /// Selector: appBytesWereWritten:onFile:by:
  void appBytesWereUpdatedOnFile(std::uint64_t bytes, const kmv::URL& file, std::string_view by,
                                 bool wasReadIO);
  void appBytesWereReadOnFile(std::uint64_t bytes, const kmv::URL& file, std::string_view by);
  void appBytesWereWrittenOnFile(std::uint64_t bytes, const kmv::URL& file, std::string_view by);

  /// Forgets a sender and its totals.
  /// Never blocks.
  /// Selector: stopMonitoringAppDriveIOUpdatesFromSender:
  void stopMonitoringAppDriveIOUpdatesFromSender(std::string_view sender);

  /// Takes the updates of the maker's tracking service (host/CrossAppKit.h) as reports of the sender
  /// "KMVDAM_notification".
  /// Idempotent: a second call counts nothing twice.
  /// Selector: listenForApplicationDriveSpeedUpdates()
  void listenForApplicationDriveSpeedUpdates();

  // --- The browser's delegate: ignores what the browser finds. ---

  void netServiceBrowserDidFindDomain(kmv::NetServiceBrowser* browser, const std::string& domain,
                                      bool moreComing) override;
  void netServiceBrowserDidFindService(kmv::NetServiceBrowser* browser, const std::string& service,
                                       bool moreComing) override;

  // --- Properties. A tracker, the totals and the queue are required: setting null stops the process with a message. ---

  /// The platform's port for looking services up; 0 stands for its default.
  std::uint32_t libtop_master_port() const { return libtop_master_port_; }
  void setLibtop_master_port(std::uint32_t port) { libtop_master_port_ = port; }

  /// A session of its own, on no queue; lives as long as the process unless a host sets another, which it
  /// then owns.
  kmv::DiskArbitrationSession* diskSession() const { return diskSession_; }
  void setDiskSession(kmv::DiskArbitrationSession* session) { diskSession_ = session; }

  /// Takes the platform's statistics.
  std::shared_ptr<KMVDriveIOActivityTracker> ioServiceTracker() const { return ioServiceTracker_.get(); }
  void setIoServiceTracker(std::shared_ptr<KMVDriveIOActivityTracker> tracker) {
    ioServiceTracker_.set(std::move(tracker));
  }
  /// Takes the host's reports.
  std::shared_ptr<KMVDriveIOActivityTracker> appTracker() const { return appTracker_.get(); }
  void setAppTracker(std::shared_ptr<KMVDriveIOActivityTracker> tracker) {
    appTracker_.set(std::move(tracker));
  }

  /// The bytes that each sender reported in total, by the drive's standardised URL; a null entry counts as
  /// none.
  std::shared_ptr<TotalsBySender> appIOLookup() const { return appIOLookup_.get(); }
  void setAppIOLookup(std::shared_ptr<TotalsBySender> totals) { appIOLookup_.set(std::move(totals)); }

  /// Serial, label "analysis queue".
  std::shared_ptr<kmv::SerialQueue> driveAnalysisQueue() const { return driveAnalysisQueue_.get(); }
  void setDriveAnalysisQueue(std::shared_ptr<kmv::SerialQueue> queue) {
    driveAnalysisQueue_.set(std::move(queue));
  }

  /// Looks for every kind of service; its results are unused.
  std::shared_ptr<kmv::NetServiceBrowser> serviceBrowser() const { return serviceBrowser_.get(); }
  void setServiceBrowser(std::shared_ptr<kmv::NetServiceBrowser> browser) {
    serviceBrowser_.set(std::move(browser));
  }

  /// Whole seconds between the end of one cycle and the beginning of the next; 1 at first.
  /// 0 counts as 1: without a pause the cycles would take a whole processor and leave no room for time to pass.
  std::uint64_t refreshFrequency() const { return refreshFrequency_; }
  void setRefreshFrequency(std::uint64_t seconds) { refreshFrequency_ = seconds; }

  /// Cycles so far; never reset.
  std::uint64_t loadCycles() const { return loadCycles_; }
  void setLoadCycles(std::uint64_t cycles) { loadCycles_ = cycles; }

 private:
  class Measurement;
  void enqueue(kmv::SerialQueue::Task task);
  void runCycle();
  void postActivity();
  void addReport(std::uint64_t bytes, const kmv::URL& drive, const std::string& sender, bool wasReadIO);

  std::atomic<std::uint32_t> libtop_master_port_{0};
  kmv::AtomicProperty<std::shared_ptr<kmv::NetServiceBrowser>> serviceBrowser_;
  std::atomic<kmv::DiskArbitrationSession*> diskSession_{nullptr};
  kmv::RequiredProperty<std::shared_ptr<KMVDriveIOActivityTracker>> ioServiceTracker_{
      "KMVDriveActivityMonitor: ioServiceTracker"};
  kmv::RequiredProperty<std::shared_ptr<KMVDriveIOActivityTracker>> appTracker_{
      "KMVDriveActivityMonitor: appTracker"};
  kmv::RequiredProperty<std::shared_ptr<kmv::SerialQueue>> driveAnalysisQueue_{
      "KMVDriveActivityMonitor: driveAnalysisQueue"};
  std::atomic<std::uint64_t> refreshFrequency_{1};
  std::atomic<std::uint64_t> loadCycles_{0};
  kmv::RequiredProperty<std::shared_ptr<TotalsBySender>> appIOLookup_{"KMVDriveActivityMonitor: appIOLookup"};
  std::atomic<bool> listensForUpdates_{false};
  kmv::OpenWork openWork_;
  std::unique_ptr<Measurement> measurement_;  // confined to driveAnalysisQueue
};

namespace kmv {

/// The activities that a notification of the monitor carries, by the drive's standardised URL; empty for any
/// other notification.
KMV_EXPORT std::map<URL, std::shared_ptr<KMVDriveIOActivity>> driveActivities(
    const Notification& notification);

}  // namespace kmv
