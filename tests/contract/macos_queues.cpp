// SPDX-License-Identifier: MIT
#include "contract/QueueHarness.h"
#include "platform/macos/MacTest.h"
#include "platform/macos/Queues.h"

namespace kmv::test {
namespace {

class MacQueues : public QueueHarness {
 public:
  ~MacQueues() override {
    factory_.reset();
    macos::expectNothingIsLeft();
  }
  std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label) override {
    return factory_->makeSerialQueue(label);
  }
  MainQueue& mainQueue() override { return factory_->mainQueue(); }
  void runUntilIdle() override {
    do fake::runUntilIdle();
    while (mainQueue().drain() > 0);
  }

 private:
  std::unique_ptr<QueueFactory> factory_ = std::make_unique<macos::MacQueueFactory>();
};

std::unique_ptr<QueueHarness> makeMacQueues() {
  return std::make_unique<MacQueues>();
}

INSTANTIATE_TEST_SUITE_P(MacOS, QueueContract, ::testing::Values(&makeMacQueues));

}  // namespace
}  // namespace kmv::test
