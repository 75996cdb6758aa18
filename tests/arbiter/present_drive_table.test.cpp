// SPDX-License-Identifier: MIT
#include "support/Memory.h"
#include "support/Testing.h"

namespace kmv {
namespace {

TEST(PresentDriveTable, FollowsTheContentOfADriveUnderEachOfItsKeysAsLongAsItHasOne) {
  const auto a = std::make_shared<DriveDictionary>(Dictionary{{"driveUUIDKey", "one"}});
  const URL first = URL::fileURLWithPath("/a", true), second = URL::fileURLWithPath("/a2", true);
  {
    PresentDriveTable table;
    table.set(first, a);
    table.set(second, a);
    a->set("driveUUIDKey", "two");
    EXPECT_EQ(table.firstWithUUID("one"), nullptr);
    EXPECT_EQ(table.firstWithUUID("two"), a);
    table.remove(first);
    a->set("driveUUIDKey", "three");
    EXPECT_EQ(table.firstWithUUID("three"), a) << "still there under its other key";
    EXPECT_TRUE(table.remove(second));
    EXPECT_FALSE(table.remove(second));
    EXPECT_EQ(table.firstWithUUID("three"), nullptr);
    table.set(first, a);
  }
  a->set("driveUUIDKey", "without the table");
}

TEST(PresentDriveTable, KeepsNothingOfChangesThatNobodyLooksUp) {
  const auto stays = std::make_shared<DriveDictionary>(), leaves = std::make_shared<DriveDictionary>();
  const URL first = URL::fileURLWithPath("/a", true), second = URL::fileURLWithPath("/b", true);
  PresentDriveTable table;
  table.set(first, stays);
  const std::size_t before = test::bytesAllocated();
  for (int i = 0; i < 20'000; ++i) {
    stays->set("driveUUIDKey", std::to_string(i));
    table.set(second, leaves);
    leaves->set("driveUUIDKey", "left");
    table.remove(second);
    PresentDriveTable().set(first, stays);
  }
  EXPECT_LT(test::bytesAllocated(), before + test::kBytesOfNoise);
  EXPECT_EQ(table.firstWithUUID("19999"), stays);
  EXPECT_EQ(table.firstWithUUID("left"), nullptr);
}

}  // namespace
}  // namespace kmv
