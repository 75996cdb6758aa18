// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "platform/linux/devices/Probe.h"

namespace kmv {

struct ProbeAnswer {
  DeviceNumber number;
  std::uint64_t ticket = 0;
  ProbeResult result;
};

/// Runs probes beside the caller, at most `kMostAtOnce` at a time and one for each whole disk. Threads exist only
/// while there are probes; one that hangs in the kernel outlives the pool. Threads: one at a time, except
/// `finished`, which is called on the probes' threads.
class ProbePool {
 public:
  static constexpr int kMostAtOnce = 8;
  using Probe = std::function<ProbeResult(const ProbeRequest&)>;

  /// `finished` tells that answers wait. It is never called again once the destructor returned.
  ProbePool(Probe probe, std::function<void()> finished);
  ~ProbePool();

  void start(std::vector<ProbeRequest> requests);
  std::vector<ProbeAnswer> takeAnswers();

 private:
  struct State;
  bool startThread();
  static void work(State& state);
  std::shared_ptr<State> state_;
};

}  // namespace kmv
