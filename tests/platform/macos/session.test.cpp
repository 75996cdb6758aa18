// SPDX-License-Identifier: MIT
// What only a session with the platform's daemon meets: tests/contract has what every session does.
#include "platform/macos/DiskSession.h"
#include "platform/macos/MacPlatform.h"
#include "platform/macos/MacTest.h"
#include "support/SessionRecorder.h"
#include "support/Testing.h"

namespace kmv::macos {
namespace {

using test::SessionRecorder;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MacSession : public MacTest {
 protected:
  void TearDown() override {
    recorder_.reset();
    MacTest::TearDown();
  }
  SessionRecorder& recorder() { return *recorder_; }
  DiskArbitrationSession& session() { return recorder().session(); }
  dispatch_queue_t queue() { return dispatchQueueOf(recorder().queue()); }
  SessionRecorder::Lines heard() {
    fake::runUntilIdle();
    return recorder().take();
  }
  std::unique_ptr<Disk> diskAt(const std::string& point) {
    return session().diskFromVolumePath(URL::fileURLWithPath(point, /*isDirectory=*/true));
  }
  /// Mounted there, before anybody listens.
  static fake::Disk card(const std::string& point = "/Volumes/CARD") {
    return {
        .bsdName = "disk2s1", .mountPoint = point, .description = {{"DAVolumeName", std::string("CARD")}}};
  }

  MacPlatform platform_;

 private:
  std::unique_ptr<SessionRecorder> recorder_ =
      std::make_unique<SessionRecorder>(platform_, [](const Dictionary& disk) {
        const std::string* name = disk.text(key::kVolumeName);
        const URL* url = disk.url(key::kVolumePath);
        return std::optional((name == nullptr ? "?" : *name) + (url == nullptr ? "" : " at " + url->path()));
      });
};

TEST_F(MacSession, WhatIsMountedBetweenTwoRegistrationsIsNotLost) {
  fake::attach(card(""));
  fake::afterNextRegistration([] { fake::mountDisk("disk2s1", "/Volumes/CARD"); });
  recorder().start();
  EXPECT_THAT(heard(),
              ElementsAre("changed CARD at /Volumes/CARD (DAVolumePath)", "appeared CARD at /Volumes/CARD"));
}

TEST_F(MacSession, EventsComeAsThePlatformHasThem) {
  recorder().start();
  fake::attach(card());
  fake::renameVolume("disk2s1", "A/B");
  fake::change("disk2s1", {}, {}, {"DAVolumeName", "DAVolumePath", "DAVolumePath"});
  fake::detach("disk2s1");
  EXPECT_THAT(heard(), ElementsAre("appeared CARD at /Volumes/CARD",
                                   "changed A/B at /Volumes/A:B (DAVolumeName DAVolumePath)",
                                   "changed A/B at /Volumes/A:B (DAVolumeName DAVolumePath DAVolumePath)",
                                   "disappeared A/B at /Volumes/A:B"));
  fake::attach({.mountPoint = "/Volumes/share", .kind = "smbfs", .source = "//host/share"});
  EXPECT_THAT(heard(), ElementsAre("appeared ? at /Volumes/share"));
  EXPECT_FALSE(recorder().last().contains(key::kAppearanceTime));
  EXPECT_EQ(recorder().last().boolValue(key::kVolumeNetwork), true);
}

TEST_F(MacSession, CallbacksRunInTasksOfTheQueueThatAreCurrentAtAnyDepth) {
  struct Seen {
    SerialQueue& queue;
    std::shared_ptr<SerialQueue> inner;
    int checks = 0;
  } seen{recorder().queue(), platform_.queues().makeSerialQueue("inner")};
  const auto check = [](Disk*, void* context) {
    auto& all = *static_cast<Seen*>(context);
    all.checks += fake::owns(dispatchQueueOf(all.queue)) && all.queue.isCurrent() ? 1 : 0;
    all.inner->sync([&] { all.checks += all.queue.isCurrent() ? 1 : 0; });
  };
  session().registerCallbacks({check, check, nullptr}, &seen);
  fake::attach(card());
  fake::detach("disk2s1");
  fake::runUntilIdle();
  EXPECT_EQ(seen.checks, 4);
}

TEST_F(MacSession, ALookedUpDiskIsDescribedAnewEachTime) {
  fake::attach(card());
  fake::addMount("/Volumes/fresh", "msdos", "/dev/disk7s1", 0);
  fake::addMount("/dev", "devfs", "devfs", 0);
  const auto disk = diskAt("/Volumes/CARD");
  ASSERT_NE(disk, nullptr);
  fake::change("disk2s1", {{"DAVolumeName", std::string("REEL")}});
  EXPECT_EQ(*disk->copyDescription()->text(key::kVolumeName), "REEL");
  fake::detach("disk2s1");
  EXPECT_EQ(disk->copyDescription(), std::nullopt);
  for (const char* point : {"/Volumes/fresh", "/dev", "/Volumes/CARD"})
    EXPECT_EQ(diskAt(point), nullptr) << point;
  EXPECT_EQ(session().diskFromVolumePath(*URL::fromString("file:relative")), nullptr);
}

TEST_F(MacSession, EveryAnswerComesOnTheQueueWhoeverRefuses) {
  fake::attach(card());
  const auto disk = diskAt("/Volumes/CARD");
  struct Answer {
    dispatch_queue_t queue;
    std::vector<Dictionary> records;
  } answer{queue(), {}};
  const auto completion = [](Disk*, const Dictionary* dissenter, void* context) {
    auto& [queue, records] = *static_cast<Answer*>(context);
    EXPECT_TRUE(fake::owns(queue));
    records.push_back(dissenter == nullptr ? Dictionary() : *dissenter);
  };
  recorder().queue().sync([&] {
    fake::refuseNext(fake::Refusal::onTheSpot, dissent::kNotPrivileged, 99);
    session().unmount(*disk, completion, &answer);
    EXPECT_THAT(answer.records, IsEmpty()) << "before the request returned";
  });
  fake::runUntilIdle();
  fake::refuseNext(fake::Refusal::byDaemon, 49168);  // EBUSY, wrapped
  session().unmount(*disk, completion, &answer);
  fake::runUntilIdle();
  session().rename(*disk, "\xFF", completion, &answer);
  session().rename(*disk, "REEL", completion, &answer);
  fake::runUntilIdle();
  const std::string status = key::kDissenterStatus;
  ASSERT_EQ(answer.records.size(), 4u);
  EXPECT_EQ(answer.records[0],
            (Dictionary{{status, dissent::kNotPrivileged}, {key::kDissenterProcessID, 99}}));
  EXPECT_EQ(answer.records[1], (Dictionary{{status, 49168}}));
  EXPECT_THAT(std::vector(answer.records.begin() + 2, answer.records.end()),
              ::testing::UnorderedElementsAre(Dictionary{{status, dissent::kBadArgument}}, Dictionary()));
  EXPECT_THAT(fake::takeRequests(),
              ElementsAre("unmount disk2s1 0", "unmount disk2s1 0", "rename disk2s1 REEL 0"));
}

TEST_F(MacSession, EndsInItsOwnCallbackAndWithCommandsThatHaveNoAnswer) {
  fake::attach(card());
  const auto disk = diskAt("/Volumes/CARD");
  struct Ends {
    SessionRecorder& recorder;
    int calls = 0;
  } ends{recorder()};
  const auto end = [](Disk*, void* context) {
    auto& [recorder, calls] = *static_cast<Ends*>(context);
    recorder.close();
    ++calls;
  };
  fake::attach({.bsdName = "disk3"});
  recorder().queue().sync([&] {
    session().registerCallbacks({end, end, nullptr}, &ends);
    fake::refuseNext(fake::Refusal::onTheSpot, dissent::kNotPrivileged);
    session().rename(*disk, "REEL", &SessionRecorder::answered, &recorder());
    session().unmount(*disk, &SessionRecorder::answered, &recorder());
  });
  EXPECT_THAT(heard(), IsEmpty());
  EXPECT_EQ(ends.calls, 1);
}

TEST_F(MacSession, IsDeafWhereThePlatformGivesNone) {
  fake::attach(card());
  fake::refuseSessions();
  SessionRecorder deaf(platform_, [](const Dictionary&) { return std::optional<std::string>("?"); });
  deaf.start();
  fake::detach("disk2s1");
  fake::attach(card());
  fake::runUntilIdle();
  EXPECT_THAT(deaf.take(), IsEmpty());
  EXPECT_EQ(deaf.session().diskFromVolumePath(URL::fileURLWithPath("/Volumes/CARD", true)), nullptr);
}

TEST_F(MacSession, HearsNothingMoreOfADeadDaemonAndItsCommandsAreRefused) {
  fake::attach(card());
  recorder().start();
  const auto disk = diskAt("/Volumes/CARD");
  EXPECT_THAT(heard(), ElementsAre("appeared CARD at /Volumes/CARD"));
  fake::killDaemon();
  fake::unmountDisk("disk2s1");
  EXPECT_THAT(heard(), IsEmpty());
  EXPECT_EQ(diskAt("/Volumes/CARD"), nullptr);
  session().unmount(*disk, &SessionRecorder::answered, &recorder());
  EXPECT_THAT(heard(),
              ElementsAre("answered " + std::to_string(dissent::kNotFound) + " without description"));
}

TEST_F(MacSession, WrongUseStopsTheProcess) {
  class Foreign : public SerialQueue {
    const std::string& label() const override { return label_; }
    void async(Task) override {}
    void sync(TaskReference) override {}
    void after(std::chrono::nanoseconds, Task) override {}
    bool isCurrent() const override { return false; }
    const std::string label_;
  };
  EXPECT_DEATH(DiskSession().setQueue(std::make_shared<Foreign>()),
               "a session needs a queue of this platform");
  EXPECT_DEATH(
      {
        session().registerCallbacks(
            {[](Disk*, void*) { throw std::runtime_error("host's"); }, nullptr, nullptr}, nullptr);
        fake::attach(card());
        fake::runUntilIdle();
      },
      "a task of queue \"session\" ended with an exception: host's");
}

}  // namespace
}  // namespace kmv::macos
