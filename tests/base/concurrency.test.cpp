// SPDX-License-Identifier: MIT
// What threads share: live dictionaries, collections, the semaphore, the notification centre.
#include "support/Testing.h"

namespace kmv {
namespace {

TEST(DriveDictionary, SnapshotsStayAndWaitForTheUpdateInProgress) {
  DriveDictionary drive({{"a", 0}, {"gone", 1}});
  const DictionarySnapshot before = drive.snapshot();
  drive.remove("gone");
  std::atomic<bool> asks{false}, hasAnswer{false};
  DictionarySnapshot seen;
  std::thread reader;
  drive.update([&](Dictionary& contents) {
    contents.set("a", 1);
    reader = std::thread([&] {
      asks = true;
      seen = drive.snapshot();
      hasAnswer = true;
    });
    while (!asks) std::this_thread::yield();
    for (int i = 0; i < 1000 && !hasAnswer; ++i) std::this_thread::yield();
    EXPECT_FALSE(hasAnswer);
    contents.set("b", 2);
  });
  reader.join();
  EXPECT_EQ(*seen, (Dictionary{{"a", 1}, {"b", 2}}));
  EXPECT_EQ(*before, (Dictionary{{"a", 0}, {"gone", 1}}));
}

TEST(LiveCollections, KeepTheOrderOfInsertion) {
  using Texts = std::vector<std::string>;
  LiveArray<std::string> array;
  for (const char* text : {"c", "a", "c", "b"}) array.append(text);
  EXPECT_EQ(array.snapshot(), (Texts{"c", "a", "c", "b"}));
  EXPECT_TRUE(array.remove("c")) << "every equal element goes";
  EXPECT_FALSE(array.remove("c"));
  EXPECT_EQ(array.snapshot(), (Texts{"a", "b"}));
  LiveSet<std::string> set;
  EXPECT_TRUE(set.add("z") && set.add("y"));
  EXPECT_FALSE(set.add("z"));
  EXPECT_EQ(set.snapshot(), (Texts{"z", "y"}));
  EXPECT_TRUE(set.remove("z"));
  EXPECT_FALSE(set.contains("z"));
  EXPECT_EQ(set.count(), 1u);
}

TEST(Semaphore, ManyWritersTakeAllUnitsWithoutDeadlockAndWaitForAHostsUnit) {
  Semaphore semaphore(8);
  semaphore.wait();
  std::atomic<int> starting{4};
  bool gaveBack = false;  // handed over by the semaphore
  int inside = 0;         // guarded by the semaphore alone
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([&] {
      --starting;
      for (int i = 0; i < 500; ++i) {
        const Semaphore::ExclusiveHold hold(semaphore, 8);
        EXPECT_TRUE(gaveBack && ++inside == 1);
        --inside;
      }
    });
  }
  while (starting > 0) std::this_thread::yield();
  for (int i = 0; i < 100; ++i)
    std::this_thread::yield();  // writers that did not wait would be inside by now
  gaveBack = true;
  semaphore.signal();
  for (auto& writer : writers) writer.join();
  EXPECT_EQ(semaphore.count(), 8);
}

TEST(SemaphoreDeathTest, AWriterThatWouldWaitForItsOwnUnitsStopsInsteadOfHanging) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  for (const int held : {8, 2}) {  // all of them, and a part beside another thread's
    Semaphore semaphore(8);
    const Semaphore::ExclusiveHold ours(semaphore, held);
    if (held < 8) std::thread([&] { const Semaphore::ExclusiveHold theirs(semaphore, held); }).join();
    EXPECT_EQ(semaphore.count(), 8 - held);
    EXPECT_DEATH(Semaphore::ExclusiveHold(semaphore, held), "writers' semaphore");
  }
}

using Registration = NotificationCenter::Registration;

struct NotificationCenterTest : testing::Test {
  auto noting(char letter) {
    return [this, letter](const Notification&) { heard += letter; };
  }
  auto add(std::optional<std::string_view> name, char letter, const void* object = nullptr) {
    return center->addObserver(name, noting(letter), object);
  }
  std::string post(const std::string& name, const NotificationObject& object = {}) {
    heard.clear();
    center->post({name, object, nullptr});
    return heard;
  }
  std::unique_ptr<NotificationCenter> center = std::make_unique<NotificationCenter>();
  std::string heard;
};

TEST_F(NotificationCenterTest, CallsInOrderOfRegistrationAndFiltersObjectsByIdentity) {
  const auto drive = std::make_shared<DriveDictionary>(Dictionary{{"k", 1}});
  const auto twin = std::make_shared<DriveDictionary>(Dictionary{{"k", 1}});
  const Registration all[] = {add("name", 'a'), add(std::nullopt, 'b'), add("name", 'c', drive.get()),
                              add("other", 'd'), add(std::nullopt, 'e')};
  EXPECT_EQ(post("name"), "abe");
  EXPECT_EQ(post("name", twin), "abe");
  EXPECT_EQ(post("name", drive), "abce");
  EXPECT_EQ(post("other"), "bde") << "a new name begins with the observers of all names";
  EXPECT_EQ(post("unheard of"), "be");
  EXPECT_EQ(NotificationObject(drive).dictionary()->doubleValue("k"), 1);
  EXPECT_EQ(NotificationObject(drive->snapshot()).drive(), nullptr);
}

TEST_F(NotificationCenterTest, LetsObserversChangeTheListWhileTheyRun) {
  Registration added, self, last;
  const auto first = center->addObserver("n", [&](const Notification&) {
    heard += '1';
    last.unregister();
    added = add("n", '3');
  });
  self = center->addObserver("n", [&](const Notification&) {
    heard += 's';
    self.unregister();
  });
  last = add("n", '2');
  EXPECT_EQ(post("n"), "1s") << "removed ones are not called any more, new ones not yet";
  EXPECT_EQ(post("n"), "1") << "the new one was replaced by the next new one";
}

TEST_F(NotificationCenterTest, RegistrationsEndWithTheirOwnerAndOutliveTheCentre) {
  { const auto shortLived = add("n", 'x'); }
  auto kept = add("n", '1');
  Registration moved = std::move(kept);
  EXPECT_EQ(post("n"), "1");
  moved = add("n", '2');  // ends the one it held
  EXPECT_EQ(post("n"), "2");
  center.reset();
  moved.unregister();
}

TEST_F(NotificationCenterTest, SurvivesPostsAndChangesFromManyThreads) {
  std::atomic<int> calls{0};
  std::atomic<bool> done{false};
  const auto steady = center->addObserver("n", [&](const Notification&) { ++calls; });
  std::thread poster([&] {
    for (int i = 0; i < 2000; ++i) center->post({"n", {}, nullptr});
    done = true;
  });
  while (!done) {
    const auto passing = center->addObserver(calls % 2 ? std::optional<std::string_view>("n") : std::nullopt,
                                             [](const Notification&) {});
  }
  poster.join();
  EXPECT_EQ(calls, 2000);
}

}  // namespace
}  // namespace kmv
