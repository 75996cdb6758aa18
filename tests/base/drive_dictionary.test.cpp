// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DriveDictionary.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace kmv {
namespace {

TEST(DriveDictionary, SnapshotsStayWhileTheLiveOneChanges) {
  DriveDictionary drive({{"name", "A"}});
  const DictionarySnapshot before = drive.snapshot();
  drive.set("name", "B");
  drive.remove("never there");
  EXPECT_EQ(*before->find("name"), Value("A"));
  EXPECT_EQ(drive.value("name"), Value("B"));
  EXPECT_FALSE(drive.value("absent"));
}

TEST(DriveDictionary, ReadersNeverSeeHalfAnUpdate) {
  DriveDictionary drive({{"a", 0}, {"b", 0}});
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
}

}  // namespace
}  // namespace kmv
