// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/PresentDriveTable.h>
#include <gtest/gtest.h>

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

}  // namespace
}  // namespace kmv
