// SPDX-License-Identifier: MIT
#include "kmvdrive/InitialReport.h"

#include <KMVDriveLibrary/Degradation.h>
#include <KMVDriveLibrary/KMVDiskAdditionalInformationProtocol.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/Queue.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <set>
#include <string>
#include <utility>

#include "kmvdrive/DisplayText.h"

namespace kmv::tool {
namespace {

using Clock = EventLoop::Clock;

// Long enough for a disk that has to be probed to be known, also on a busy machine: with half of this, one
// list in ten missed a disk that had just been unmounted.
constexpr std::chrono::milliseconds kQuietPeriod{200};
// The library holds a disk back for five seconds at most while its signature is read, and then announces it
// without; one more second for what follows.
constexpr std::chrono::seconds kLimit{6};

/// What has happened so far; touched on the main thread only.
struct Progress {
  std::uint64_t registrations = 0;
  std::uint64_t fencesPassed = 0;
};

/// Hears of every registration on the arbiter queue and posts it to the main queue, whose descriptor wakes
/// the loop.
class Listener : public KMVDiskAdditionalInformationProtocol {
 public:
  explicit Listener(std::shared_ptr<Progress> progress) : progress_(std::move(progress)) {}

  bool addInformationAboutDiskDictionary(const std::shared_ptr<DriveDictionary>&) override {
    tellMainThread();
    return false;
  }
  bool addInformationAboutUnmountedDiskDictionary(const std::shared_ptr<DriveDictionary>&) override {
    tellMainThread();
    return false;
  }

  /// From here on it does nothing. The registry keeps it: removing it would wait for the arbiter queue.
  void retire() { retired_.store(true); }

 private:
  void tellMainThread() {
    if (!retired_.load()) mainQueue().async([progress = progress_] { ++progress->registrations; });
  }

  std::shared_ptr<Progress> progress_;
  std::atomic<bool> retired_{false};
};

class InitialReport {
 public:
  explicit InitialReport(EventLoop& loop) : loop_(loop) {
    arbiter_.addAdditionalInformationListener(listener_);
    arbiter_.startArbiter();
    limit_ = Clock::now() + kLimit;
    quietUntil_ = Clock::now() + kQuietPeriod;
  }
  ~InitialReport() { listener_->retire(); }
  InitialReport(const InitialReport&) = delete;
  InitialReport& operator=(const InitialReport&) = delete;

  /// False when the program is to end.
  bool await() {
    while (Clock::now() < limit_) {
      if (!fenceInFlight_ && Clock::now() >= quietUntil_) endQuietPeriod();
      const Wake wake = loop_.wait(nextLook());
      if (wake == Wake::stopRequested || wake == Wake::outputClosed) return false;
      if (progress_->registrations != registrations_) {
        beginQuietPeriod();
      } else if (fenceInFlight_ && progress_->fencesPassed == fencesSent_) {
        break;
      }
    }
    return true;
  }

  /// True while some volume was not registered that was mounted at the start and still is: one that left
  /// before its registration stays on the list for ever.
  bool isAwaiting() const {
    const auto unregistered = arbiter_.disksAlreadyMountedAtInit()->snapshot();
    return std::any_of(unregistered.begin(), unregistered.end(),
                       [this](const URL& url) { return isMounted(url); });
  }

  /// The mount points of these volumes, for a line of text.
  std::string awaited() const {
    std::string points;
    for (const URL& url : arbiter_.disksAlreadyMountedAtInit()->snapshot()) {
      if (isMounted(url)) points += (points.empty() ? "" : ", ") + visibleText(url.path());
    }
    return points;
  }

 private:
  bool isMounted(const URL& url) const {
    return arbiter_.forceReadDetailsOfDriveMountedAtPath(url.path()) != nullptr;
  }

  /// While a fence is in flight only news can help.
  Clock::time_point nextLook() const { return fenceInFlight_ ? limit_ : std::min(limit_, quietUntil_); }

  void beginQuietPeriod() {
    registrations_ = progress_->registrations;
    quietUntil_ = Clock::now() + kQuietPeriod;
    fenceInFlight_ = false;
  }

  void endQuietPeriod() {
    if (isAwaiting()) {
      beginQuietPeriod();
    } else {
      sendFence();
    }
  }

  /// A fence: comes back behind everything that the two queues hold now, without blocking on either.
  void sendFence() {
    arbiter_.arbiterQueue()->async(
        [progress = progress_] { mainQueue().async([progress] { ++progress->fencesPassed; }); });
    ++fencesSent_;
    fenceInFlight_ = true;
  }

  EventLoop& loop_;
  KMVDiskArbiter& arbiter_ = KMVDiskArbiter::sharedInstance();
  std::shared_ptr<Progress> progress_ = std::make_shared<Progress>();
  std::shared_ptr<Listener> listener_ = std::make_shared<Listener>(progress_);
  Clock::time_point limit_;
  Clock::time_point quietUntil_;
  std::uint64_t registrations_ = 0;
  std::uint64_t fencesSent_ = 0;
  bool fenceInFlight_ = false;
};

}  // namespace

bool awaitInitialReport(EventLoop& loop) {
  InitialReport report(loop);
  if (!report.await()) return false;
  if (const std::string awaited = report.awaited(); !awaited.empty())
    std::fprintf(stderr, "kmvdrive: not identified in time: %s\n", awaited.c_str());
  warnOfDegradations();
  return true;
}

bool warnOfDegradations() {
  static std::set<std::string> told;
  const auto present = degradations();
  for (const std::string& what : present) {
    if (told.insert(what).second)
      std::fprintf(stderr, "kmvdrive: degraded: %s; what is told may be incomplete or wrong\n", what.c_str());
  }
  return !present.empty();
}

void addDegradations(JSON& document) {
  if (const auto present = degradations(); !present.empty()) document["degraded"] = present;
}

}  // namespace kmv::tool
