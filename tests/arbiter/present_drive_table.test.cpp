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

TEST(PresentDriveTable, FollowsTheContentOfItsDrives) {
  PresentDriveTable table;
  const auto a = drive({{"DAAppearanceTime", 1.0}, {"driveUUIDKey", "one"}});
  table.set(key("/a"), a);
  table.set(key("/a2"), a);  // one drive under two keys
  EXPECT_EQ(table.firstWithUUID("one"), a);
  a->set("driveUUIDKey", "two");
  a->set("DAAppearanceTime", 2);
  EXPECT_EQ(table.firstWithUUID("one"), nullptr);
  EXPECT_EQ(table.firstWithUUID("two"), a);
  EXPECT_EQ(table.firstMatching("", 2.0), a);
  EXPECT_EQ(table.firstMatching(std::nullopt, 1.0), nullptr);
  table.remove(key("/a"));
  a->set("driveUUIDKey", "three");
  EXPECT_EQ(table.firstWithUUID("three"), a) << "still there under its other key";
  table.remove(key("/a2"));
  a->set("driveUUIDKey", "four");
  EXPECT_EQ(table.firstWithUUID("four"), nullptr);
}

TEST(PresentDriveTable, TheFirstIsTheSmallestKeyAndNoNumberMatchesNothing) {
  PresentDriveTable table;
  const auto later = drive({});
  const auto first = drive({{"DAVolumeUUID", UUID(UUID::Bytes{1})}});
  const auto strange = drive({{"DAAppearanceTime", std::nan("")}});
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

TEST(PresentDriveTable, DiesWithoutItsDrivesAndTheyWithoutIt) {
  const auto survivor = drive({});
  {
    PresentDriveTable table;
    table.set(key("/a"), survivor);
    table.set(key("/b"), drive({}));
  }
  survivor->set("k", 1);
}

}  // namespace
}  // namespace kmv
