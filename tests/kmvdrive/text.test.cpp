// SPDX-License-Identifier: MIT
#include "kmvdrive/CommandLine.h"
#include "kmvdrive/DisplayText.h"
#include "support/Testing.h"

namespace kmv::tool {
namespace {

TEST(DisplayText, AHostileNameCannotDriveTheTerminal) {
  const std::pair<std::string, const char*> names[] = {
      {"\x1b]0;owned\x07", "\\x1b]0;owned\\x07"},
      {"\xc2\x9b[2J\x7f", "\\u{9b}[2J\\x7f"},  // the control characters beyond ASCII too
      {"a\xff\xc0\xaf\xed\xa0\x80\xe2\x82", "a\\xff\\xc0\\xaf\\xed\\xa0\\x80\\xe2\\x82"},
      {"\xe0\x9f\xbf\xf0\x8f\xbf\xbf\xf4\x90\x80\x80\xf5",
       "\\xe0\\x9f\\xbf\\xf0\\x8f\\xbf\\xbf\\xf4\\x90\\x80\\x80\\xf5"},
      {"gpj.\u202eexe\u2028\u00ad", "gpj.\\u{202e}exe\\u{2028}\\u{ad}"},
      {"back\\slash\t", "back\\\\slash\\x09"},
      {"Zürich 東京 👩‍🚀", "Zürich 東京 👩‍🚀"},  // what is text stays text
  };
  for (const auto& [name, shown] : names) EXPECT_EQ(visibleText(name), shown);
}

TEST(DisplayText, WidthsAndSizesAreWhatPeopleSee) {
  const std::pair<const char*, std::size_t> widths[] = {
      {"Zürich", 6}, {"Zu\u0308rich", 6}, {"東京", 4}, {"💾", 2}, {"", 0}};
  for (const auto& [text, width] : widths) EXPECT_EQ(displayWidth(text), width) << text;
  EXPECT_EQ(clippedText("aü界b", 3), "aü");
  EXPECT_EQ(clippedText("aü界b", 4), "aü界");
  const std::pair<std::uint64_t, const char*> sizes[] = {{0, "0 B"},
                                                         {999, "999 B"},
                                                         {1500, "1.5 kB"},
                                                         {9'960'000, "10 MB"},
                                                         {999'600, "1.0 MB"},  // never 1000 kB
                                                         {16'000'000'000'000, "16 TB"},
                                                         {UINT64_MAX, "18 EB"}};
  for (const auto& [bytes, text] : sizes) EXPECT_EQ(sizeText(bytes), text);
}

TEST(DisplayText, ATableAlignsItsCellsAndColoursItsHeadings) {
  Table table({{"NAME"}, {"SIZE", Table::Align::right}, {"PATH"}});
  table.addRow({"東京", "1.5 GB", "/a"});
  table.addRow({"evil\n\x1b[31m", "", "/much/longer"});
  EXPECT_EQ(table.text(Style(false)),
            "NAME                SIZE  PATH\n"
            "東京              1.5 GB  /a\n"
            "evil\\x0a\\x1b[31m       -  /much/longer\n");
  Table coloured({{"A"}, {"B"}});
  coloured.addRow({"c", "d"});
  EXPECT_EQ(coloured.text(Style(true)), "\x1b[1mA\x1b[0m  \x1b[1mB\x1b[0m\nc  d\n");
}

TEST(CommandLine, SecondsAreDecimalNumbersThatAreNotNegative) {
  EXPECT_EQ(parseSeconds("0.25"), 0.25);
  EXPECT_EQ(parseSeconds("1e3"), 1000.0);
  for (const char* text : {"", "-1", "-0", "nan", "inf", "0x10", "1s", " 1", "1e999"}) {
    EXPECT_EQ(parseSeconds(text), std::nullopt) << text;
  }
  EXPECT_EQ(deadlineAfterSeconds(""), std::nullopt);
  EXPECT_GT(deadlineAfterSeconds("1e300"), EventLoop::Clock::now() + std::chrono::hours(24 * 365));
}

}  // namespace
}  // namespace kmv::tool
