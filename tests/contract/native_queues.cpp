// SPDX-License-Identifier: MIT
#include <poll.h>

#include "contract/QueueHarness.h"
#include "platform/linux/queues/Queues.h"
#include "support/OtherThreads.h"

namespace kmv::test {
namespace {

class NativeQueues : public QueueHarness {
 public:
  std::shared_ptr<SerialQueue> makeSerialQueue(const std::string& label) override {
    return factory_.makeSerialQueue(label);
  }
  MainQueue& mainQueue() override { return factory_.mainQueue(); }

  /// The library has a thread as long as there is something to do.
  void runUntilIdle() override {
    const int descriptor = mainQueue().fileDescriptor();
    bool wasBusy = true;
    while (wasBusy) {
      pollfd waiting{descriptor, POLLIN, 0};
      poll(&waiting, 1, 1);
      wasBusy = hasOtherThreads();  // asked first: a thread may leave the main queue something to do
      if (mainQueue().drain() > 0) wasBusy = true;
    }
    // Seeing that a thread has ended does not yet make visible what it did; another task's way through the
    // workers does.
    const auto last = makeSerialQueue("last");
    last->async([] {});
    last->sync([] {});
  }

 private:
  LinuxQueueFactory factory_;
};

std::unique_ptr<QueueHarness> makeNativeQueues() {
  return std::make_unique<NativeQueues>();
}

INSTANTIATE_TEST_SUITE_P(Native, QueueContract, ::testing::Values(&makeNativeQueues));

}  // namespace
}  // namespace kmv::test
