// SPDX-License-Identifier: MIT
#include "platform/linux/devices/ProbePool.h"

#include <KMVDriveLibrary/Mutex.h>

#include <deque>
#include <set>
#include <system_error>
#include <utility>

#include "platform/linux/queues/Threads.h"

namespace kmv {

/// Shared with the probes' threads, one of which may never come back.
struct ProbePool::State {
  State(Probe probeToRun, std::function<void()> tellFinished)
      : probe(std::move(probeToRun)), finished(std::move(tellFinished)) {}

  const Probe probe;
  Mutex mutex;
  std::function<void()> finished KMV_GUARDED_BY(mutex);  // empty once the pool is gone
  std::deque<ProbeRequest> waiting KMV_GUARDED_BY(mutex);
  std::set<DeviceNumber> running KMV_GUARDED_BY(mutex);
  std::vector<ProbeAnswer> answers KMV_GUARDED_BY(mutex);
  int threads KMV_GUARDED_BY(mutex) = 0;

  void answer(const ProbeRequest& request, ProbeResult result) KMV_REQUIRES(mutex) {
    answers.push_back({request.device.number, request.ticket, std::move(result)});
    if (finished) finished();
  }

  /// The first request whose disk is not being probed: partitions of one sick disk keep one thread only.
  std::optional<ProbeRequest> takeNext() KMV_REQUIRES(mutex) {
    for (auto request = waiting.begin(); request != waiting.end(); ++request) {
      if (!running.insert(request->device.wholeNumber).second) continue;
      ProbeRequest next = std::move(*request);
      waiting.erase(request);
      return next;
    }
    return std::nullopt;
  }
};

ProbePool::ProbePool(Probe probe, std::function<void()> finished)
    : state_(std::make_shared<State>(std::move(probe), std::move(finished))) {}

ProbePool::~ProbePool() {
  const MutexLock lock(state_->mutex);
  state_->waiting.clear();
  state_->finished = nullptr;
}

void ProbePool::start(std::vector<ProbeRequest> requests) {
  State& state = *state_;
  const MutexLock lock(state.mutex);
  for (ProbeRequest& request : requests) {
    // The newest request about a device supersedes the ones before.
    std::erase_if(state.waiting,
                  [&](const ProbeRequest& older) { return older.device.number == request.device.number; });
    state.waiting.push_back(std::move(request));
  }
  while (state.threads < kMostAtOnce &&
         static_cast<std::size_t>(state.threads) < state.waiting.size() + state.running.size()) {
    if (!startThread()) break;
    ++state.threads;
  }
  if (state.threads > 0) return;
  // No thread can be started.
  for (const ProbeRequest& request : std::exchange(state.waiting, {}))
    state.answer(request, {std::nullopt, /*isDeferred=*/true});
}

/// False when the system has no thread left.
bool ProbePool::startThread() {
  try {
    kmv::startThread("kmv-probe", [state = state_] { work(*state); }).detach();
    return true;
  } catch (const std::system_error&) {
    return false;
  }
}

void ProbePool::work(State& state) {
  MutexLock lock(state.mutex);
  while (auto request = state.takeNext()) {
    lock.unlock();
    ProbeResult result = state.probe(*request);
    lock.lock();
    state.running.erase(request->device.wholeNumber);
    state.answer(*request, std::move(result));
  }
  --state.threads;
}

std::vector<ProbeAnswer> ProbePool::takeAnswers() {
  const MutexLock lock(state_->mutex);
  return std::exchange(state_->answers, {});
}

}  // namespace kmv
