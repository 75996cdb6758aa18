// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/NumberOrder.h>

#include "base/ByteCountText.h"
#include "base/TextOfBytes.h"
#include "base/UTF8.h"
#include "support/Testing.h"

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
  constexpr std::uint64_t kBeyond = std::uint64_t{1} << 63;
  const std::pair<int, Value> ranked[] = {{0, -1e300},
                                          {1, -2},
                                          {1, -2.0},
                                          {2, -1.5},
                                          {3, -1},
                                          {4, 0},
                                          {4, false},
                                          {5, 0.5},
                                          {6, 1},
                                          {6, true},
                                          {6, 1.0},
                                          {7, 1.5},
                                          {8, INT64_MAX - 1},
                                          {9, INT64_MAX},
                                          {10, kBeyond},
                                          {10, 9223372036854775808.0},
                                          {11, kBeyond + 1},
                                          {12, 9223372036854777856.0},
                                          {13, UINT64_MAX},
                                          {14, 18446744073709551616.0},
                                          {15, std::nan("")},
                                          {15, "no number"}};
  for (const auto& [rank, value] : ranked) {
    for (const auto& [otherRank, other] : ranked)
      EXPECT_EQ(NumberOrder()(value, other), rank < otherRank)
          << value.description() << " " << other.description();
  }
}

}  // namespace
}  // namespace kmv
