// SPDX-License-Identifier: MIT
#include "contract/QueueHarness.h"
#include "platform/simulated/Scheduler.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

class SimulatedQueues : public QueueHarness {
 public:
  explicit SimulatedQueues(std::uint64_t seed) : scheduler_(seed) {}

  std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label) override {
    return scheduler_.makeSerialQueue(label);
  }
  MainQueue& mainQueue() override { return scheduler_.mainQueue(); }
  void runUntilIdle() override { scheduler_.advance(std::chrono::hours(1)); }

 private:
  simulated::Scheduler scheduler_;
};

template <std::uint64_t seed>
std::unique_ptr<QueueHarness> makeSimulatedQueues() {
  return std::make_unique<SimulatedQueues>(seed);
}

INSTANTIATE_TEST_SUITE_P(Simulated, QueueContract,
                         ::testing::Values(&makeSimulatedQueues<1>, &makeSimulatedQueues<2>,
                                           &makeSimulatedQueues<3>));
INSTANTIATE_TEST_SUITE_P(Simulated, QueueCycles,
                         ::testing::Values(&makeSimulatedQueues<1>, &makeSimulatedQueues<2>,
                                           &makeSimulatedQueues<3>));

}  // namespace
}  // namespace kmv::test
