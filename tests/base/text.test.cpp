// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/NumberOrder.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "base/ByteCountText.h"
#include "base/TextOfBytes.h"
#include "base/UTF8.h"

namespace kmv {
namespace {

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

TEST(Text, OfByteCountsRoundsHalfToEven) {
  const std::pair<std::int64_t, const char*> cases[] = {
      {0, "Zero KB"}, {1, "1 byte"},     {-999, "-999 bytes"},    {1500, "2 KB"},
      {2500, "2 KB"}, {999'500, "1 MB"}, {12'350'000, "12.4 MB"}, {1'230'000'000, "1.23 GB"}};
  for (const auto& [bytes, text] : cases) EXPECT_EQ(byteCountText(bytes), text);
}

TEST(NumberOrder, IsExactAcrossKindsWithNaNLast) {
  constexpr std::int64_t kLargest = std::numeric_limits<std::int64_t>::max();
  const Value ascending[] = {
      -1e300,      -2, -1.5, -1, false, 0.5, true, 1.5, kLargest - 1, kLargest, 9223372036854775808.0,
      std::nan("")};
  for (const Value& a : ascending) {
    for (const Value& b : ascending)
      EXPECT_EQ(NumberOrder()(a, b), &a < &b) << a.description() << " " << b.description();
  }
  EXPECT_FALSE(NumberOrder()("text", std::nan("")) || NumberOrder()(std::nan(""), "text") ||
               NumberOrder()(1, 1.0));
}

}  // namespace
}  // namespace kmv
