// SPDX-License-Identifier: MIT
// The library's main queue among what a host does with the platform's.
#include <CoreFoundation/CoreFoundation.h>

#include "platform/macos/MacTest.h"
#include "platform/macos/Queues.h"
#include "support/Testing.h"

namespace kmv::macos {
namespace {

using namespace std::chrono_literals;

class MacMain : public MacTest {
 protected:
  void TearDown() override {
    hostsLoop();  // the places of what was drained
    factory_.reset();
    MacTest::TearDown();
  }
  MainQueue& queue() { return factory_->mainQueue(); }
  void note(char letter) { order_ += letter; }
  void post(char letter) {
    queue().async([this, letter] { note(letter); });
  }
  /// A block of the host's own on the platform's main queue.
  void hostsBlock() {
    dispatch_async_f(dispatch_get_main_queue(), this,
                     [](void* self) { static_cast<MacMain*>(self)->note('-'); });
  }
  /// One turn of the host's run loop.
  static void hostsLoop() { CFRunLoopRunInMode(kCFRunLoopDefaultMode, 0, 0); }
  bool isReadable() {
    pollfd waiting{queue().fileDescriptor(), POLLIN, 0};
    return poll(&waiting, 1, 0) == 1;
  }
  std::string takeOrder() { return std::exchange(order_, {}); }

  std::unique_ptr<MacQueueFactory> factory_ = std::make_unique<MacQueueFactory>();

 private:
  std::string order_;
};

TEST_F(MacMain, AHostsRunLoopRunsTasksInTheirPlacesAmongItsOwnBlocks) {
  post('a');
  hostsBlock();
  queue().async([this] {
    note(queue().isCurrent() && fake::owns(dispatch_get_main_queue()) ? 'b' : '?');
    post('d');
    EXPECT_EQ(queue().drain(), 0u) << "inside a task";
  });
  hostsBlock();
  post('c');
  hostsLoop();
  EXPECT_EQ(takeOrder(), "a-b-cd");
  EXPECT_FALSE(queue().isCurrent());
}

TEST_F(MacMain, PlacesOfDrainedTasksDoNothingAndServeAgain) {
  post('a');
  post('b');
  EXPECT_EQ(queue().drain(), 2u);
  hostsLoop();
  EXPECT_EQ(takeOrder(), "ab");
  for (int i = 0; i < 100; ++i) {
    post('x');
    EXPECT_EQ(queue().drain(), 1u);
  }
  EXPECT_EQ(fake::mainQueueLength(), 1u);
  takeOrder();
  post('c');
  post('d');
  hostsLoop();
  EXPECT_EQ(takeOrder(), "cd");
}

TEST_F(MacMain, AStopFromAnotherThreadWakesTheRunAndLeavesTheTasksThatCameAfterIt) {
  std::thread stopper([this] {
    queue().sync([this] { note('a'); });
    queue().async([this] {
      note('b');
      queue().stop();
    });
    post('c');
    post('d');
  });
  queue().run();
  stopper.join();
  EXPECT_EQ(takeOrder().substr(0, 2), "ab");
  queue().drain();
  hostsLoop();

  std::thread later([this] { queue().after(5s, [this] { queue().stop(); }); });
  queue().run();
  later.join();
}

TEST_F(MacMain, WhatAStoppedRunLeavesRunsInTheHostsLoopToo) {
  queue().async([this] {
    note('a');
    queue().stop();
  });
  post('b');
  hostsBlock();
  queue().run();
  EXPECT_EQ(takeOrder(), "a-") << "the platform runs all that waits in its queue at once";
  hostsLoop();
  EXPECT_EQ(takeOrder(), "b");
}

TEST_F(MacMain, WithADescriptorOnlyDrainAndRunDoTheWork) {
  post('a');
  EXPECT_TRUE(isReadable());
  hostsLoop();
  EXPECT_EQ(takeOrder(), "");
  queue().async([this] {
    note('b');
    EXPECT_FALSE(isReadable());
    post('c');
  });
  EXPECT_EQ(queue().drain(), 2u);
  EXPECT_EQ(takeOrder(), "ab");
  EXPECT_TRUE(isReadable());
  EXPECT_EQ(fake::mainQueueLength(), 0u) << "no places, which would pile up";
  queue().after(3s, [this] {
    note('d');
    queue().stop();
    post('e');
  });
  queue().run();
  EXPECT_EQ(takeOrder(), "cd");
  EXPECT_TRUE(isReadable());
  EXPECT_EQ(queue().drain(), 1u);
  EXPECT_FALSE(isReadable());
}

TEST_F(MacMain, AnExceptionOfAWaitedTaskReachesTheCallerOnItsThread) {
  std::thread caller([this] {
    EXPECT_THROW(queue().sync([] { throw std::runtime_error("unplugged"); }), std::runtime_error);
    queue().stop();
  });
  queue().run();
  caller.join();
}

TEST_F(MacMain, WrongUseStopsTheProcess) {
  EXPECT_DEATH(queue().sync([] {}), "KMVDriveLibrary: sync called on queue \"main\"");
  EXPECT_DEATH(std::thread([this] { queue().drain(); }).join(), "beside the process's main thread");
  EXPECT_DEATH(std::thread([this] { queue().run(); }).join(), "beside the process's main thread");
  EXPECT_DEATH(
      {
        queue().async([this] { queue().run(); });
        queue().drain();
      },
      "run called on queue \"main\"");
  EXPECT_DEATH(
      {
        dispatch_async_f(dispatch_get_main_queue(), &queue(),
                         [](void* q) { static_cast<MainQueue*>(q)->run(); });
        hostsLoop();
      },
      "it would never end");
}

}  // namespace
}  // namespace kmv::macos
