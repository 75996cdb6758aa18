// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/LiveCollections.h>
#include <gtest/gtest.h>

#include <string>

namespace kmv {
namespace {

TEST(LiveCollections, KeepTheOrderOfInsertion) {
  LiveArray<std::string> array;
  for (const char* text : {"c", "a", "c", "b"}) array.append(text);
  EXPECT_EQ(array.snapshot(), (std::vector<std::string>{"c", "a", "c", "b"}));
  EXPECT_TRUE(array.remove("c")) << "every equal element goes";
  EXPECT_FALSE(array.remove("c"));
  EXPECT_EQ(array.snapshot(), (std::vector<std::string>{"a", "b"}));

  LiveSet<std::string> set;
  EXPECT_TRUE(set.add("z"));
  EXPECT_TRUE(set.add("y"));
  EXPECT_FALSE(set.add("z"));
  EXPECT_EQ(set.snapshot(), (std::vector<std::string>{"z", "y"}));
  EXPECT_TRUE(set.remove("z"));
  EXPECT_FALSE(set.contains("z"));
  EXPECT_EQ(set.count(), 1u);
}

}  // namespace
}  // namespace kmv
