// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/PresentDriveTable.h>
#include <gtest/gtest.h>

#include <cmath>

namespace kmv {
namespace {

URL key(const std::string& path) {
  return URL::fileURLWithPath(path, true);
}

std::shared_ptr<DriveDictionary> drive(Dictionary contents) {
  return std::make_shared<DriveDictionary>(std::move(contents));
}

TEST(PresentDriveTable, FollowsTheContentOfADriveUnderEachOfItsKeysAsLongAsItHasOne) {
  const auto a = drive({{"driveUUIDKey", "one"}});
  {
    PresentDriveTable table;
    table.set(key("/a"), a);
    table.set(key("/a2"), a);
    a->set("driveUUIDKey", "two");
    EXPECT_EQ(table.firstWithUUID("one"), nullptr);
    EXPECT_EQ(table.firstWithUUID("two"), a);
    table.remove(key("/a"));
    a->set("driveUUIDKey", "three");
    EXPECT_EQ(table.firstWithUUID("three"), a) << "still there under its other key";
    EXPECT_TRUE(table.remove(key("/a2")));
    EXPECT_FALSE(table.remove(key("/a2")));
    EXPECT_EQ(table.firstWithUUID("three"), nullptr);
    table.set(key("/a"), a);
    table.set(key("/b"), drive({}));
  }
  a->set("driveUUIDKey", "without the table");
}

TEST(PresentDriveTable, TheFirstIsTheSmallestKeyAndNaNMatchesNothing) {
  PresentDriveTable table;
  const auto later = drive({}), first = drive({{"DAVolumeUUID", UUID(UUID::Bytes{1})}}),
             strange = drive({{"DAAppearanceTime", std::nan("")}});
  table.set(key("/b"), later);
  table.set(key("/a"), first);
  table.set(key("/0"), strange);
  EXPECT_EQ(table.firstMatching(std::nullopt, 0.0), first) << "an absent time reads as 0";
  EXPECT_EQ(table.firstMatching("", 0.0), later) << "an absent UUID counts as the empty text";
  EXPECT_EQ(table.firstMatching("", std::nullopt), strange);
  EXPECT_EQ(table.firstMatching("", std::nan("")), nullptr);
  table.set(key("/b"), nullptr);
  EXPECT_EQ(table.count(), 2u);
  EXPECT_EQ(table.copies().begin()->first, key("/0"));
}

}  // namespace
}  // namespace kmv
