// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Semaphore.h>
#include <gtest/gtest.h>

#include <thread>
#include <vector>

namespace kmv {
namespace {

TEST(Semaphore, ManyWritersTakeAllUnitsWithoutLockingEachOtherOut) {
  Semaphore semaphore(8);
  int inside = 0;  // guarded by the semaphore alone
  int total = 0;
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t) {
    writers.emplace_back([&] {
      for (int i = 0; i < 500; ++i) {
        const Semaphore::ExclusiveHold hold(semaphore, 8);
        EXPECT_EQ(++inside, 1);
        ++total;
        --inside;
      }
    });
  }
  for (auto& writer : writers) writer.join();
  EXPECT_EQ(total, 2000);
  EXPECT_EQ(semaphore.count(), 8);
}

TEST(Semaphore, AWriterWaitsForAHostThatHoldsOneUnit) {
  Semaphore semaphore(8);
  semaphore.wait();
  bool gaveBack = false;  // handed over by the semaphore
  std::thread writer([&] {
    const Semaphore::ExclusiveHold hold(semaphore, 8);
    EXPECT_TRUE(gaveBack);
  });
  gaveBack = true;
  semaphore.signal();
  writer.join();
}

TEST(SemaphoreDeathTest, AWriterWithinAWriterStopsInsteadOfHanging) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  Semaphore semaphore(8);
  const Semaphore::ExclusiveHold outer(semaphore, 8);
  EXPECT_DEATH(Semaphore::ExclusiveHold(semaphore, 8), "writers' semaphore");
}

}  // namespace
}  // namespace kmv
