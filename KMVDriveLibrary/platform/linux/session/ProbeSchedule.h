// SPDX-License-Identifier: MIT
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "platform/linux/mounts/MountInfo.h"

namespace kmv {

/// Which devices are to be probed, when again, and for how long their disks wait for the answer. Thread: one at a time.
/// Makes no system call.
class ProbeSchedule {
 public:
  using Clock = std::chrono::steady_clock;

  /// How long a disk that is to be announced waits for its own probe: discs that spin up and sticks that are being
  /// written to take seconds.
  static constexpr std::chrono::seconds kPatience{5};
  /// After how long a deferred probe is asked for again: an exponential back-off between these.
  static constexpr std::chrono::milliseconds kFirstDeferral{100}, kLongestDeferral{5000};

  struct Wanted {
    DeviceNumber number;
    std::uint64_t ticket = 0;  ///< goes back with the answer
  };

  /// A new probe; the answers to earlier ones no longer count.
  void want(DeviceNumber number);
  void forget(DeviceNumber number);
  /// False when the answer does not count: another medium, or asked again since.
  bool finished(DeviceNumber number, std::uint64_t ticket);
  /// The probe was not possible yet.
  void deferred(DeviceNumber number, std::uint64_t ticket, Clock::time_point now);

  bool isUnanswered(DeviceNumber number) const { return open_.contains(number); }
  /// The same while it is worth waiting for.
  bool isAwaited(DeviceNumber number) const;
  /// Somebody waits for the answer from now on, if nobody did yet.
  void await(DeviceNumber number, Clock::time_point now);

  /// The devices whose disks have waited long enough.
  std::vector<DeviceNumber> passDeadlines(Clock::time_point now);
  std::vector<DeviceNumber> awaited() const;
  /// Each probe is handed out once, and once more after each deferral.
  std::vector<Wanted> takeWanted();
  std::optional<Clock::time_point> nextDeadline() const;

 private:
  using Deadlines = std::set<std::pair<Clock::time_point, DeviceNumber>>;
  struct Open {
    std::uint64_t ticket = 0;
    bool isAwaited = true;
    std::optional<Clock::time_point> patienceEnds, retryAt;
    std::chrono::milliseconds deferral = kFirstDeferral;
  };

  std::uint64_t lastTicket_ = 0;
  std::map<DeviceNumber, Open> open_;  // without an answer
  std::set<DeviceNumber> wanted_;
  Deadlines patience_;
  Deadlines retries_;
};

}  // namespace kmv
