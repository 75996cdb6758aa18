// SPDX-License-Identifier: MIT
#include "platform/linux/devices/ProbePool.h"

#include <pthread.h>

#include <deque>
#include <mutex>
#include <set>
#include <system_error>
#include <thread>
#include <utility>

#include "platform/linux/queues/Threads.h"

namespace kmv {

/// Shared with the probes' threads, one of which may never come back.
struct ProbePool::State {
  std::mutex mutex;
  Probe probe;
  std::function<void()> finished;  // empty once the pool is gone
  std::deque<ProbeRequest> waiting;
  std::set<DeviceNumber> running;
  std::vector<ProbeAnswer> answers;
  int threads = 0;

  void answer(const ProbeRequest& request, std::optional<SignatureFacts> facts) {
    answers.push_back({request.device.number, request.ticket, std::move(facts)});
    if (finished) finished();
  }

  /// The first request whose device is not being probed. REQUIRES: the mutex is held.
  std::optional<ProbeRequest> takeNext() {
    for (auto request = waiting.begin(); request != waiting.end(); ++request) {
      if (!running.insert(request->device.number).second) continue;
      ProbeRequest next = std::move(*request);
      waiting.erase(request);
      return next;
    }
    return std::nullopt;
  }
};

ProbePool::ProbePool(Probe probe, std::function<void()> finished) : state_(std::make_shared<State>()) {
  state_->probe = std::move(probe);
  state_->finished = std::move(finished);
}

ProbePool::~ProbePool() {
  const std::lock_guard lock(state_->mutex);
  state_->waiting.clear();
  state_->finished = nullptr;
}

void ProbePool::start(std::vector<ProbeRequest> requests) {
  const std::lock_guard lock(state_->mutex);
  for (ProbeRequest& request : requests) {
    // Only the newest question about a device is of interest.
    std::erase_if(state_->waiting,
                  [&](const ProbeRequest& older) { return older.device.number == request.device.number; });
    state_->waiting.push_back(std::move(request));
  }
  while (state_->threads < kMostAtOnce &&
         static_cast<std::size_t>(state_->threads) < state_->waiting.size() + state_->running.size()) {
    try {
      startThread("kmv-probe", [state = state_] { work(state); }).detach();
      ++state_->threads;
    } catch (const std::system_error&) {
      if (state_->threads > 0) break;
      // No thread is to be had: nothing is known of the devices then.
      for (const ProbeRequest& request : std::exchange(state_->waiting, {}))
        state_->answer(request, std::nullopt);
      break;
    }
  }
}

void ProbePool::work(const std::shared_ptr<State>& state) {
  std::unique_lock lock(state->mutex);
  while (auto request = state->takeNext()) {
    lock.unlock();
    auto facts = state->probe(*request);
    lock.lock();
    state->running.erase(request->device.number);
    state->answer(*request, std::move(facts));
  }
  --state->threads;
}

std::vector<ProbeAnswer> ProbePool::takeAnswers() {
  const std::lock_guard lock(state_->mutex);
  return std::exchange(state_->answers, {});
}

}  // namespace kmv
