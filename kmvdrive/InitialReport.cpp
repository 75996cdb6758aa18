// SPDX-License-Identifier: MIT
#include "kmvdrive/InitialReport.h"

#include <KMVDriveLibrary/KMVDiskAdditionalInformationProtocol.h>
#include <KMVDriveLibrary/KMVDiskArbiter.h>
#include <KMVDriveLibrary/Queue.h>

#include <algorithm>
#include <atomic>
#include <cstdio>

namespace kmv::tool {
namespace {

// Long enough for a disk that has to be read to be known, also on a busy machine: with half of this, one list
// in ten missed a disk that had just been unmounted.
constexpr std::chrono::milliseconds kQuietPeriod{200};
constexpr std::chrono::seconds kLimit{3};

}  // namespace

/// Hears of every registration on the arbiter queue and hands the news to the main queue, whose descriptor
/// wakes the loop.
class InitialReport::Listener : public KMVDiskAdditionalInformationProtocol {
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

  /// The registry keeps the listener, since taking it out would wait for the arbiter queue; from here on it
  /// does nothing.
  void retire() { retired_.store(true); }

 private:
  void tellMainThread() {
    if (!retired_.load()) mainQueue().async([progress = progress_] { ++progress->registrations; });
  }

  std::shared_ptr<Progress> progress_;
  std::atomic<bool> retired_{false};
};

InitialReport::InitialReport()
    : progress_(std::make_shared<Progress>()), listener_(std::make_shared<Listener>(progress_)) {
  KMVDiskArbiter::sharedInstance().addAdditionalInformationListener(listener_);
}

InitialReport::~InitialReport() {
  listener_->retire();
}

void InitialReport::warnWhenIncomplete() const {
  if (incomplete_) std::fputs("kmvdrive: some mounted volumes could not be identified in time\n", stderr);
}

/// Comes back behind everything that the two queues hold now, without waiting for either.
void InitialReport::sendFence() {
  KMVDiskArbiter::sharedInstance().arbiterQueue()->async(
      [progress = progress_] { mainQueue().async([progress] { ++progress->fencesPassed; }); });
}

std::optional<Wake> InitialReport::run(EventLoop& loop) {
  using Clock = EventLoop::Clock;
  KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  arbiter.startArbiter();
  const auto limit = Clock::now() + kLimit;
  auto quietSince = Clock::now();
  std::uint64_t registrations = progress_->registrations;
  std::uint64_t fencesSent = 0;
  bool fenceUnderWay = false;

  while (Clock::now() < limit) {
    const bool outstanding = arbiter.disksAlreadyMountedAtInit()->count() > 0;
    const bool quiet = Clock::now() >= quietSince + kQuietPeriod;
    if (!outstanding && quiet && !fenceUnderWay) {
      sendFence();
      ++fencesSent;
      fenceUnderWay = true;
    }
    // While a volume is outstanding or the fence is under way, only news can help; else the quiet period's
    // end does.
    const bool newsOnly = outstanding || fenceUnderWay;
    const Wake wake = loop.wait(newsOnly ? limit : std::min(limit, quietSince + kQuietPeriod));
    if (wake == Wake::stopRequested || wake == Wake::outputClosed) return wake;
    if (progress_->registrations != registrations) {
      registrations = progress_->registrations;
      quietSince = Clock::now();
      fenceUnderWay = false;
    } else if (fenceUnderWay && progress_->fencesPassed == fencesSent) {
      break;
    }
  }
  listener_->retire();
  incomplete_ = arbiter.disksAlreadyMountedAtInit()->count() > 0;
  return std::nullopt;
}

}  // namespace kmv::tool
