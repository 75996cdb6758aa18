// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/Value.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace kmv {
namespace {

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();

TEST(Value, NumbersAreEqualByNumberAcrossKinds) {
  EXPECT_EQ(Value(true), Value(1));
  EXPECT_EQ(Value(1), Value(1.0));
  EXPECT_EQ(Value(false), Value(-0.0));
  EXPECT_NE(Value(true), Value(2));
  EXPECT_NE(Value(1), Value("1"));
  // 2^63 - 1 is no double; the nearest one is 2^63 and must not pass for it.
  EXPECT_NE(Value(kLargest), Value(9223372036854775808.0));
  EXPECT_NE(Value(std::nan("")), Value(std::nan("")));
}

TEST(Value, BooleansAndNumbersStayDifferentKinds) {
  EXPECT_EQ(Value(true).kind(), Value::Kind::boolean);
  EXPECT_EQ(Value(1).kind(), Value::Kind::integer);
  EXPECT_EQ(Value("text").kind(), Value::Kind::text);  // a pointer is text, never a truth
  EXPECT_EQ(Value(std::uint64_t{1} << 63).kind(), Value::Kind::real);
}

TEST(Value, ReadsNumbersAsThePlatformDoes) {
  EXPECT_TRUE(Value(0.5).boolValue());
  EXPECT_TRUE(Value(-1).boolValue());
  EXPECT_FALSE(Value("yes").boolValue());
  EXPECT_EQ(Value(-1.9).integerValue(), -1);
  EXPECT_EQ(Value(1e300).integerValue(), kLargest);
  EXPECT_EQ(Value(std::nan("")).integerValue(), 0);
  EXPECT_EQ(Dictionary{}.doubleValue("absent"), 0);
}

TEST(Value, ComparesContainersAndObjects) {
  const auto object = std::make_shared<Object>();
  EXPECT_EQ(Value(Array{1, "a", Dictionary{{"k", true}}}), Value(Array{1.0, "a", Dictionary{{"k", 1}}}));
  EXPECT_NE(Value(Array{1}), Value(Array{1, 2}));
  EXPECT_EQ(Value(object), Value(object));
  EXPECT_NE(Value(object), Value(std::make_shared<Object>()));
}

TEST(Value, PrintsLikeTheLogsExpect) {
  EXPECT_EQ(Value(true).description(), "1");
  EXPECT_EQ(Value(1.5).description(), "1.5");
  EXPECT_EQ(Value(1.0).description(), "1");
  EXPECT_EQ(Value(0.1).description(), "0.1");
  EXPECT_EQ(Value("with blank").description(), "with blank");
  EXPECT_EQ(Value(Array{}).description(), "(\n)");
  EXPECT_EQ(Value(Dictionary{}).description(), "{\n}");
  EXPECT_EQ(Value(Array{1, 2}).description(), "(\n    1,\n    2\n)");
  EXPECT_EQ(
      Value(Dictionary{{"b", Dictionary{{"x", "y z"}}}, {"a", -1}, {"c", Array{1.5, ""}}}).description(),
      "{\n    a = \"-1\";\n    b =     {\n        x = \"y z\";\n    };\n"
      "    c =     (\n        \"1.5\",\n        \"\"\n    );\n}");
  EXPECT_EQ(Value(Array{"\"\\\xc3\xa9\xf0\x9f\x98\x80\xff"}).description(),
            "(\n    \"\\\"\\\\\\U00e9\\Ud83d\\Ude00\\U00ff\"\n)");
  EXPECT_EQ(Value(Date{0}).description(), "2001-01-01 00:00:00 +0000");
  EXPECT_EQ(Value(Date{-63114076800}).description(), "0001-01-01 00:00:00 +0000") << "the distant past";
  constexpr double kFirstGregorianDay = -141427.0 * 86400 - Date::kReferenceDate;
  EXPECT_EQ(Value(Date{kFirstGregorianDay}).description(), "1582-10-15 00:00:00 +0000");
  EXPECT_EQ(Value(Date{kFirstGregorianDay - 1}).description(), "1582-10-04 23:59:59 +0000");
  constexpr double kDaysSinceLeapDay = 30169;  // of 1500, which only the Julian calendar has
  EXPECT_EQ(Value(Date{kFirstGregorianDay - kDaysSinceLeapDay * 86400}).description(),
            "1500-02-29 00:00:00 +0000");
}

TEST(Dictionary, KeepsKeysInOrderAndMergesOver) {
  Dictionary dictionary{{"b", 1}, {"a", 2}, {"b", 3}};
  EXPECT_EQ(dictionary.size(), 2u);
  EXPECT_EQ(dictionary.begin()->first, "a");
  EXPECT_EQ(*dictionary.find("b"), Value(3));
  dictionary.merge({{"0", 0}, {"b", 4}, {"c", 5}});
  EXPECT_EQ(dictionary, (Dictionary{{"0", 0}, {"a", 2}, {"b", 4}, {"c", 5}}));
  dictionary.remove("a");
  dictionary.remove("never there");
  EXPECT_EQ(dictionary.size(), 3u);
  EXPECT_EQ(dictionary.text("b"), nullptr);
}

TEST(UUID, ReadsBothCasesAndWritesUpper) {
  const auto uuid = UUID::fromString("6d1f2c3a-8a52-5a0e-9A7B-0c5d3e1f4b60");
  ASSERT_TRUE(uuid);
  EXPECT_EQ(uuid->string(), "6D1F2C3A-8A52-5A0E-9A7B-0C5D3E1F4B60");
  for (const char* bad :
       {"", "6A81-CDD2", "6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b6", "6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b6g",
        "6d1f2c3a-8a52-5a0e-9a7b_0c5d3e1f4b60", "6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b600"}) {
    EXPECT_FALSE(UUID::fromString(bad)) << bad;
  }
  EXPECT_TRUE(UUID::fromString("00000000-0000-0000-0000-000000000000")->isNull());
}

}  // namespace
}  // namespace kmv
