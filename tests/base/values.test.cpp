// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/NumberOrder.h>

#include "base/ByteCountText.h"
#include "base/TextOfBytes.h"
#include "base/UTF8.h"
#include "support/Testing.h"

namespace kmv {
namespace {

constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
constexpr std::uint64_t kBeyond = std::uint64_t{1} << 63, kMost = std::numeric_limits<std::uint64_t>::max();

TEST(Value, ComparesNumbersAcrossKindsAndObjectsByIdentity) {
  const auto object = std::make_shared<Object>();
  const std::pair<Value, Value> equal[] = {
      {true, 1},
      {1, 1.0},
      {false, -0.0},
      {kBeyond, 9223372036854775808.0},
      {kMost, kMost},
      {object, object},
      {Array{1, Dictionary{{"k", true}}}, Array{1.0, Dictionary{{"k", 1}}}}};
  for (const auto& [a, b] : equal) EXPECT_TRUE(a == b && b == a) << a.description();
  // 2^63 - 1 is no double; the nearest one is 2^63 and must not pass for it.
  const std::pair<Value, Value> different[] = {{true, 2},
                                               {1, "1"},
                                               {kLargest, 9223372036854775808.0},
                                               {kLargest, kBeyond},
                                               {-1, kMost},
                                               {kBeyond, kBeyond + 1},
                                               {kBeyond + 1, 9223372036854775808.0},
                                               {kMost, 18446744073709551616.0},
                                               {std::nan(""), std::nan("")},
                                               {1, 1.5},
                                               {Array{1}, Array{1, 2}},
                                               {object, std::make_shared<Object>()}};
  for (const auto& [a, b] : different) EXPECT_FALSE(a == b || b == a) << a.description();
}

TEST(Value, BooleansAndNumbersStayDifferentKindsAndReadAsThePlatformDoes) {
  EXPECT_EQ(Value(true).kind(), Value::Kind::boolean);
  EXPECT_EQ(Value(1).kind(), Value::Kind::integer);
  EXPECT_EQ(Value("text").kind(), Value::Kind::text);  // a pointer is text, never a boolean
  EXPECT_EQ(Value(kMost).kind(), Value::Kind::integer);
  EXPECT_TRUE(Value(0.5).boolValue() && Value(-1).boolValue());
  EXPECT_FALSE(Value("yes").boolValue() || Value(0.0).boolValue());
  EXPECT_EQ(Value(-1.9).integerValue(), -1);
  EXPECT_EQ(Value(true).integerValue(), 1);
  EXPECT_EQ(Value(1e300).integerValue(), kLargest);
  EXPECT_EQ(Value(-1e300).integerValue(), -kLargest - 1);
  EXPECT_EQ(Value(std::nan("")).integerValue(), 0);
  EXPECT_EQ(Value(kMost).integerValue(), kLargest);
  EXPECT_EQ(Value(kMost).doubleValue(), 18446744073709551616.0);
  EXPECT_TRUE(Value(kMost).boolValue());
  std::vector<std::uint64_t> naturals;
  for (const Value& value : {Value(kMost), Value(-1), Value(-1.5), Value(1e300), Value(9223372036854775808.0),
                             Value(1.9), Value(true), Value(std::nan("")), Value("1")})
    naturals.push_back(value.unsignedValue());
  EXPECT_EQ(naturals, (std::vector<std::uint64_t>{kMost, kMost, kMost, kMost, kBeyond, 1, 1, 0, 0}));
  EXPECT_EQ(Dictionary{}.doubleValue("absent"), 0);
}

TEST(Value, PrintsLikeTheLogsExpect) {
  constexpr double kFirstGregorianDay = -141427.0 * 86400 - Date::kReferenceDate;
  constexpr double kSinceLeapDay = 30169.0 * 86400;  // of 1500, which only the Julian calendar has
  const std::pair<Value, const char*> texts[] = {
      {true, "1"},
      {kMost, "18446744073709551615"},
      {1.5, "1.5"},
      {1.0, "1"},
      {0.1, "0.1"},
      {"with blank", "with blank"},
      {Array{}, "(\n)"},
      {Dictionary{}, "{\n}"},
      {Array{1, 2}, "(\n    1,\n    2\n)"},
      {Dictionary{{"b", Dictionary{{"x", "y z"}}}, {"a", -1}, {"c", Array{1.5, ""}}},
       "{\n    a = \"-1\";\n    b =     {\n        x = \"y z\";\n    };\n"
       "    c =     (\n        \"1.5\",\n        \"\"\n    );\n}"},
      {Array{"\"\\\xc3\xa9\xf0\x9f\x98\x80\xff"}, "(\n    \"\\\"\\\\\\U00e9\\Ud83d\\Ude00\\U00ff\"\n)"},
      {Data{std::byte{0x0a}, std::byte{0xff}}, "{length = 2, bytes = 0x0aff}"},
      {Date{0}, "2001-01-01 00:00:00 +0000"},
      {Date{-63114076800}, "0001-01-01 00:00:00 +0000"},  // the distant past
      {Date{kFirstGregorianDay}, "1582-10-15 00:00:00 +0000"},
      {Date{kFirstGregorianDay - 1}, "1582-10-04 23:59:59 +0000"},
      {Date{kFirstGregorianDay - kSinceLeapDay}, "1500-02-29 00:00:00 +0000"}};
  for (const auto& [value, text] : texts) EXPECT_EQ(value.description(), text);
}

TEST(Dictionary, KeepsKeysInOrderAndMergesOver) {
  Dictionary dictionary{{"b", 1}, {"a", 2}, {"b", 3}};
  EXPECT_EQ(dictionary.begin()->first, "a");
  EXPECT_EQ(dictionary, (Dictionary{{"a", 2}, {"b", 3}}));
  dictionary.merge({{"0", 0}, {"b", 4}, {"c", 5}});
  dictionary.remove("a");
  dictionary.remove("never there");
  EXPECT_EQ(dictionary, (Dictionary{{"0", 0}, {"b", 4}, {"c", 5}}));
  EXPECT_EQ(dictionary.text("b"), nullptr);
}

TEST(UUID, ReadsBothCasesAndWritesUpper) {
  const auto uuid = UUID::fromString("6d1f2c3a-8a52-5a0e-9A7B-0c5d3e1f4b60");
  ASSERT_TRUE(uuid);
  EXPECT_EQ(uuid->string(), "6D1F2C3A-8A52-5A0E-9A7B-0C5D3E1F4B60");
  for (const char* bad :
       {"", "6A81-CDD2", "6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b6", "6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b6g",
        "6d1f2c3a-8a52-5a0e-9a7b_0c5d3e1f4b60", "6d1f2c3a-8a52-5a0e-9a7b-0c5d3e1f4b600"})
    EXPECT_FALSE(UUID::fromString(bad)) << bad;
  EXPECT_TRUE(UUID::fromString("00000000-0000-0000-0000-000000000000")->isNull());
}

TEST(Text, IsTrimmedOfThePlatformsWhiteSpaceOnly) {
  const auto isSpace = [](char32_t c) {
    std::string text;
    appendUTF8(text, c);
    return withoutWhiteSpaceAtEnds(text + "x" + text) == "x" && withoutWhiteSpaceAtEnds(text).empty();
  };
  for (const unsigned c : {0x09U, 0x0dU, 0x20U, 0x85U, 0xa0U, 0x1680U, 0x2000U, 0x200bU, 0x2028U, 0x2029U,
                           0x202fU, 0x205fU, 0x3000U})
    EXPECT_TRUE(isSpace(c)) << c;
  for (const unsigned c : {0x01U, 0x08U, 0x0eU, 0x1fU, 0x41U, 0x200cU, 0x2027U, 0x1f600U})
    EXPECT_FALSE(isSpace(c)) << c;
}

TEST(Text, IsUTF8WithoutOverlongFormsAndSurrogates) {
  for (const char* text : {"", "a", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80", "\xf4\x8f\xbf\xbf"})
    EXPECT_TRUE(isUTF8(text)) << text;
  for (const char* bytes : {"\x80", "\xc0\xaf", "\xc3", "\xe0\x80\xaf", "\xed\xa0\x80", "\xf0\x80\x80\x80",
                            "\xf4\x90\x80\x80", "\xff"})
    EXPECT_FALSE(isUTF8(bytes)) << bytes;
}

TEST(Text, OfByteCountsIsThePlatformsAndRoundsHalfToEven) {
  constexpr std::int64_t kSmall[] = {0, 1, -1, 2, -999, 1000, 1500, 2500, -1023, 11'999, 999'499, 999'500};
  constexpr std::int64_t kLarge[] = {1'500'000,          12'350'000,         123'456'789,   999'900'000,
                                     999'999'999,        1'230'000'000,      5'500'000'000, -12'345'678'987,
                                     std::int64_t(1e12), std::int64_t(1e15), INT64_MAX,     INT64_MIN};
  std::string texts;
  for (const std::int64_t bytes : kSmall) texts += byteCountText(bytes) + ", ";
  for (const std::int64_t bytes : kLarge) texts += byteCountText(bytes) + ", ";
  EXPECT_EQ(
      texts,
      "Zero KB, 1 byte, -1 byte, 2 bytes, -999 bytes, 1 KB, 2 KB, 2 KB, -1 KB, 12 KB, 999 KB, 1 MB, 1.5 MB, "
      "12.4 MB, 123.5 MB, 999.9 MB, 1 GB, 1.23 GB, 5.5 GB, -12.35 GB, 1 TB, 1 PB, 9.22 EB, -9.22 EB, ");
}

TEST(NumberOrder, IsExactAcrossKindsWithNaNLast) {
  const std::vector<Value> ascending{
      -1e300, -2,     -2.0,         -1.5,          -1,        0,       false,  0.5,         1,
      true,   1.0,    1.5,          INT64_MAX - 1, INT64_MAX, kBeyond, 0x1p63, kBeyond + 1, 0x1p63 + 2048,
      kMost,  0x1p64, std::nan(""), "none"};
  const std::size_t numbers = ascending.size() - 2;
  for (std::size_t i = 0; i < ascending.size(); ++i) {
    for (std::size_t j = 0; j < ascending.size(); ++j) {
      const Value &a = ascending[i], &b = ascending[j];
      EXPECT_EQ(NumberOrder()(a, b), i < j && i < numbers && !(a == b))
          << a.description() << " " << b.description();
    }
  }
}

}  // namespace
}  // namespace kmv
