// SPDX-License-Identifier: MIT
#include "platform/linux/session/ProbeSchedule.h"

#include <algorithm>
#include <utility>

namespace kmv {

void ProbeSchedule::want(DeviceNumber number) {
  Open& open = open_[number];
  if (open.retryAt) retries_.erase({*open.retryAt, number});
  // Who waits already goes on, and does not begin anew.
  open = {++lastTicket_, /*isAwaited=*/true, open.patienceEnds, std::nullopt, kFirstDeferral};
  wanted_.insert(number);
}

void ProbeSchedule::forget(DeviceNumber number) {
  const auto found = open_.find(number);
  if (found == open_.end()) return;
  if (found->second.patienceEnds) patience_.erase({*found->second.patienceEnds, number});
  if (found->second.retryAt) retries_.erase({*found->second.retryAt, number});
  wanted_.erase(number);
  open_.erase(found);
}

bool ProbeSchedule::finished(DeviceNumber number, std::uint64_t ticket) {
  const auto found = open_.find(number);
  if (found == open_.end() || found->second.ticket != ticket) return false;
  forget(number);
  return true;
}

void ProbeSchedule::deferred(DeviceNumber number, std::uint64_t ticket, Clock::time_point now) {
  const auto found = open_.find(number);
  if (found == open_.end() || found->second.ticket != ticket) return;
  Open& open = found->second;
  if (open.retryAt) retries_.erase({*open.retryAt, number});
  open.retryAt = now + open.deferral;
  retries_.insert({*open.retryAt, number});
  open.deferral = std::min(2 * open.deferral, kLongestDeferral);
}

bool ProbeSchedule::isAwaited(DeviceNumber number) const {
  const auto found = open_.find(number);
  return found != open_.end() && found->second.isAwaited;
}

void ProbeSchedule::await(DeviceNumber number, Clock::time_point now) {
  Open& open = open_.at(number);
  if (open.patienceEnds) return;
  open.patienceEnds = now + kPatience;
  patience_.insert({*open.patienceEnds, number});
}

std::vector<DeviceNumber> ProbeSchedule::passDeadlines(Clock::time_point now) {
  std::vector<DeviceNumber> ended;
  while (!patience_.empty() && patience_.begin()->first <= now) {
    ended.push_back(patience_.begin()->second);
    patience_.erase(patience_.begin());
    open_.at(ended.back()).patienceEnds.reset();
    open_.at(ended.back()).isAwaited = false;
  }
  while (!retries_.empty() && retries_.begin()->first <= now) {
    const DeviceNumber number = retries_.begin()->second;
    retries_.erase(retries_.begin());
    open_.at(number).retryAt.reset();
    wanted_.insert(number);
  }
  return ended;
}

std::vector<DeviceNumber> ProbeSchedule::awaited() const {
  std::vector<DeviceNumber> numbers;
  for (const auto& [time, number] : patience_) numbers.push_back(number);
  return numbers;
}

std::vector<ProbeSchedule::Wanted> ProbeSchedule::takeWanted() {
  std::vector<Wanted> wanted;
  for (const DeviceNumber number : std::exchange(wanted_, {}))
    wanted.push_back({number, open_.at(number).ticket});
  return wanted;
}

std::optional<ProbeSchedule::Clock::time_point> ProbeSchedule::nextDeadline() const {
  if (patience_.empty() || retries_.empty()) {
    const Deadlines& some = patience_.empty() ? retries_ : patience_;
    return some.empty() ? std::nullopt : std::optional(some.begin()->first);
  }
  return std::min(patience_.begin()->first, retries_.begin()->first);
}

}  // namespace kmv
