// SPDX-License-Identifier: MIT
#include "kmvdrive/InitialReport.h"

#include <KMVDriveLibrary/KMVDiskAdditionalInformationProtocol.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/Queue.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstdio>
#include <memory>
#include <utility>

namespace kmv::tool {
namespace {

using Clock = EventLoop::Clock;

// Long enough for a disk that has to be probed to be known, also on a busy machine: with half of this, one
// list in ten missed a disk that had just been unmounted.
constexpr std::chrono::milliseconds kQuietPeriod{200};
constexpr std::chrono::seconds kLimit{3};

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
      if (!isOutstanding() && !fenceInFlight_ && Clock::now() >= quietUntil_) sendFence();
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

  /// True while some volume that is mounted was not registered.
  bool isOutstanding() const { return arbiter_.disksAlreadyMountedAtInit()->count() > 0; }

 private:
  /// While a volume is outstanding or a fence is in flight, only news can help; else the end of the quiet
  /// period.
  Clock::time_point nextLook() const {
    return isOutstanding() || fenceInFlight_ ? limit_ : std::min(limit_, quietUntil_);
  }

  void beginQuietPeriod() {
    registrations_ = progress_->registrations;
    quietUntil_ = Clock::now() + kQuietPeriod;
    fenceInFlight_ = false;
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
  if (report.isOutstanding())
    std::fputs("kmvdrive: some mounted volumes could not be identified in time\n", stderr);
  return true;
}

}  // namespace kmv::tool
