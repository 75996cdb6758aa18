// SPDX-License-Identifier: MIT
// A host's CoreFoundation objects and dispatch queues beside the library's.
#include <KMVDriveLibrary/bridging/CoreFoundation.h>

#include "platform/macos/MacTest.h"

namespace kmv {
namespace {

using MacBridging = macos::MacTest;

TEST_F(MacBridging, ValuesGoThereAndBack) {
  const Dictionary facts{{"name", "CARD"}, {"size", 42}};
  const void* const object = createCFValue(facts);
  EXPECT_EQ(valueOfCF(object), Value(facts));
  CFRelease(object);
  EXPECT_EQ(valueOfCF(nullptr), std::nullopt);
}

TEST_F(MacBridging, AHostsQueueIsOneOfTheLibrarysAndKept) {
  const dispatch_queue_t hosts = dispatch_queue_create("host's", DISPATCH_QUEUE_SERIAL);
  auto queue = serialQueueOver(hosts);
  EXPECT_EQ(queue->label(), "host's");
  EXPECT_EQ(dispatchQueueOf(*queue), hosts);
  dispatch_release(hosts);  // the wrapper has a reference of its own
  const auto second = serialQueueOver(dispatchQueueOf(*queue));
  queue->sync([&] { EXPECT_TRUE(second->isCurrent() && fake::owns(hosts)); });
  queue.reset();
  bool ran = false;
  second->async([&] { ran = second->isCurrent(); });
  fake::runUntilIdle();
  EXPECT_TRUE(ran);

  class Other : public SerialQueue {
    const std::string& label() const override { return label_; }
    void async(Task) override {}
    void sync(TaskReference) override {}
    void after(std::chrono::nanoseconds, Task) override {}
    bool isCurrent() const override { return false; }
    const std::string label_;
  };
  EXPECT_EQ(dispatchQueueOf(Other()), nullptr);
}

}  // namespace
}  // namespace kmv
