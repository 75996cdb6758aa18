// SPDX-License-Identifier: MIT
// What threads share: live dictionaries, collections, the semaphore.
#include "support/Testing.h"

namespace kmv {
namespace {

TEST(DriveDictionary, SnapshotsStayAndReadersSeeUpdatesAtomically) {
  DriveDictionary drive({{"a", 0}, {"b", 0}, {"gone", 1}});
  const DictionarySnapshot before = drive.snapshot();
  drive.remove("gone");
  EXPECT_FALSE(drive.value("gone"));
  std::atomic<bool> done{false};
  std::thread writer([&] {
    for (int i = 1; i <= 2000; ++i) {
      drive.update([&](Dictionary& contents) {
        contents.set("a", i);
        contents.set("b", i);
      });
    }
    done = true;
  });
  bool torn = false;
  while (!done) {
    const auto contents = drive.snapshot();
    torn = torn || !(*contents->find("a") == *contents->find("b"));
  }
  writer.join();
  EXPECT_FALSE(torn);
  EXPECT_EQ(drive.value("a"), Value(2000));
  EXPECT_EQ(*before, (Dictionary{{"a", 0}, {"b", 0}, {"gone", 1}}));
}

/// Runs `action` on `other` and gives it time; true when it ended meanwhile, which it cannot when it waits for a
/// lock that the caller holds.
bool endsMeanwhile(std::thread& other, std::function<void()> action) {
  const auto begun = std::make_shared<std::atomic<bool>>(), ended = std::make_shared<std::atomic<bool>>();
  other = std::thread([=] {
    *begun = true;
    action();
    *ended = true;
  });
  while (!*begun) std::this_thread::yield();
  for (int i = 0; i < 1000 && !*ended; ++i) std::this_thread::yield();
  return *ended;
}

TEST(DriveDictionary, ASnapshotWaitsForTheUpdateInProgress) {
  DriveDictionary drive({{"a", 0}});
  DictionarySnapshot seen;
  std::thread reader;
  drive.update([&](Dictionary& contents) {
    contents.set("a", 1);
    EXPECT_FALSE(endsMeanwhile(reader, [&] { seen = drive.snapshot(); }));
  });
  reader.join();
  EXPECT_EQ(*seen, (Dictionary{{"a", 1}}));
}

/// Calls `whileCopied` when a dictionary copies it, which it does under its lock.
struct Copied {
  explicit Copied(std::function<void()> action) : whileCopied(std::move(action)) {}
  Copied(const Copied& other) {
    if (other.whileCopied) other.whileCopied();
  }
  Copied& operator=(const Copied&) = default;
  std::function<void()> whileCopied;
};

TEST(LiveCollections, ASnapshotOfADictionaryWaitsForTheEntryThatIsBeingSet) {
  LiveDictionary<int, Copied> dictionary;
  std::size_t seen = 0;
  std::thread reader;
  dictionary.set(
      1, Copied([&] { EXPECT_FALSE(endsMeanwhile(reader, [&] { seen = dictionary.snapshot().size(); })); }));
  reader.join();
  EXPECT_EQ(seen, 1u);
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

TEST(SemaphoreDeathTest, AWriterWithinAWriterStopsInsteadOfHanging) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Semaphore semaphore(8);
  const Semaphore::ExclusiveHold outer(semaphore, 8);
  EXPECT_DEATH(Semaphore::ExclusiveHold(semaphore, 8), "writers' semaphore");
}

TEST(SemaphoreDeathTest, PartialHoldsOfSeveralThreadsAreEachKnown) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Semaphore semaphore(8);
  const Semaphore::ExclusiveHold ours(semaphore, 2);
  std::thread([&] { const Semaphore::ExclusiveHold theirs(semaphore, 2); }).join();
  EXPECT_EQ(semaphore.count(), 6);
  EXPECT_DEATH(Semaphore::ExclusiveHold(semaphore, 2), "writers' semaphore");
}

}  // namespace
}  // namespace kmv
