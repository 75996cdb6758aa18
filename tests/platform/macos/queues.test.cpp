// SPDX-License-Identifier: MIT
// What only the platform's queues do: tasks that others start on them, exceptions, quality of service, delays.
#include "platform/macos/Queues.h"

#include "platform/macos/MacTest.h"
#include "support/Testing.h"

namespace kmv::macos {
namespace {

using namespace std::chrono_literals;

class MacQueues : public MacTest {
 protected:
  std::shared_ptr<SerialQueue> make(const std::string& label) { return factory_.makeSerialQueue(label); }

  MacQueueFactory factory_;
};

TEST_F(MacQueues, TasksRunOnThePlatformsQueue) {
  const auto line = make("line");
  int runs = 0;
  const auto check = [&] { runs += fake::owns(dispatchQueueOf(*line)) ? 1 : 0; };
  line->async(check);
  line->sync(check);
  line->after(2s, check);
  fake::advance(1s);
  EXPECT_EQ(runs, 2);
  fake::advance(1s);
  EXPECT_EQ(runs, 3);
  EXPECT_FALSE(fake::owns(dispatchQueueOf(*line)));
}

TEST_F(MacQueues, AQueueIsCurrentInATaskThatSomebodyElseStartedOnIt) {
  const auto line = make("line");
  const auto other = make("other");
  struct Seen {
    SerialQueue &line, &other;
    int checks;
  } seen{*line, *other, 0};
  dispatch_async_f(dispatchQueueOf(*line), &seen, [](void* context) {
    auto& [lineIn, otherIn, checks] = *static_cast<Seen*>(context);
    checks += lineIn.isCurrent() && !otherIn.isCurrent() ? 1 : 0;
  });
  fake::runUntilIdle();
  EXPECT_EQ(seen.checks, 1);
  EXPECT_DEATH(
      {
        dispatch_async_f(dispatchQueueOf(*line), line.get(),
                         [](void* queue) { static_cast<SerialQueue*>(queue)->sync([] {}); });
        fake::runUntilIdle();
      },
      "KMVDriveLibrary: sync called on queue \"line\" that the calling thread already owns");
}

TEST_F(MacQueues, ATaskDiesWithinItsTurnAndTheQueueMayGoBeforeIt) {
  auto line = make("line");
  const dispatch_queue_t queue = dispatchQueueOf(*line);
  bool diedOnItsQueue = false;
  struct Last {
    dispatch_queue_t queue;
    bool& onItsQueue;
    ~Last() { onItsQueue = fake::owns(queue); }
  };
  const auto blocker = make("blocker");
  blocker->sync([&] {
    line->async([&] { blocker->sync([] {}); });
    line->async([last = std::shared_ptr<Last>(new Last{queue, diedOnItsQueue})] {});
    line.reset();
  });
  fake::runUntilIdle();
  EXPECT_TRUE(diedOnItsQueue);
}

TEST_F(MacQueues, AnExceptionOutOfATaskStopsTheProcessAndNamesTheQueue) {
  const auto fail = [](auto& queue) {
    queue.async([] { throw std::runtime_error("unplugged"); });
    fake::runUntilIdle();
  };
  EXPECT_DEATH(fail(*make("line")),
               "KMVDriveLibrary: a task of queue \"line\" ended with an exception: unplugged");
  EXPECT_DEATH(fail(*factory_.makeConcurrentQueue("many")), "a task of queue \"many\"");
}

TEST_F(MacQueues, EachQueueHasTheQualityOfServiceThatWasAskedFor) {
  using enum QualityOfService;
  const struct {
    QualityOfService asked;
    unsigned given;
  } table[] = {{unspecified, 0}, {userInteractive, 0x21}, {userInitiated, 0x19},
               {standard, 0x15}, {utility, 0x11},         {background, 0x09}};
  for (const auto& [asked, given] : table)
    EXPECT_EQ(fake::qualityOfService(dispatchQueueOf(*factory_.makeSerialQueue("line", asked))), given);
  const auto many = factory_.makeConcurrentQueue("many", background);
  EXPECT_EQ(many->label(), "many");
  bool ran = false;
  many->async([&] { ran = true; });
  fake::runUntilIdle();
  EXPECT_TRUE(ran);
}

TEST_F(MacQueues, ADelayBeyondTheClockBecomesTwentyYears) {
  bool ran = false;
  make("line")->after(std::chrono::nanoseconds::max(), [&] { ran = true; });
  fake::advance(std::chrono::years(19));
  EXPECT_FALSE(ran);
  fake::advance(std::chrono::years(1));
  EXPECT_TRUE(ran);
}

}  // namespace
}  // namespace kmv::macos
