// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DissentStatus.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <limits>
#include <optional>
#include <string>

#include "kmvdrive/DisplayText.h"
#include "kmvdrive/EventText.h"
#include "kmvdrive/RefusalText.h"
#include "kmvdrive/SecondsOption.h"
#include "kmvdrive/Table.h"

namespace kmv::tool {
namespace {

const Style kPlain(false);

TEST(DisplayText, AHostileNameCannotDriveTheTerminal) {
  EXPECT_EQ(visibleText("\x1b]0;owned\x07"), "\\x1b]0;owned\\x07");
  EXPECT_EQ(visibleText("\xc2\x9b[2J"), "\\u{9b}[2J") << "the control characters beyond ASCII too";
  EXPECT_EQ(visibleText("a\xff\xc0\xaf\xed\xa0\x80\xe2\x82"), "a\\xff\\xc0\\xaf\\xed\\xa0\\x80\\xe2\\x82");
  EXPECT_EQ(visibleText("gpj.\u202eexe\u2028"), "gpj.\\u{202e}exe\\u{2028}");
  EXPECT_EQ(visibleText("back\\slash\t"), "back\\\\slash\\x09");
  EXPECT_EQ(visibleText("Zürich 東京 👩‍🚀"), "Zürich 東京 👩‍🚀")
      << "what is text stays text";
}

TEST(DisplayText, WidthsFollowTheColumnsOfATerminal) {
  EXPECT_EQ(displayWidth("Zürich"), 6U);
  EXPECT_EQ(displayWidth("Zu\u0308rich"), 6U) << "a combining mark takes no column";
  EXPECT_EQ(displayWidth("東京"), 4U);
  EXPECT_EQ(displayWidth("💾"), 2U);
}

TEST(DisplayText, SizesRoundToWhatPeopleRead) {
  EXPECT_EQ(sizeText(0), "0 B");
  EXPECT_EQ(sizeText(999), "999 B");
  EXPECT_EQ(sizeText(1500), "1.5 kB");
  EXPECT_EQ(sizeText(9'960'000), "10 MB");
  EXPECT_EQ(sizeText(999'600), "1.0 MB") << "never 1000 kB";
  EXPECT_EQ(sizeText(std::numeric_limits<std::int64_t>::max()), "9.2 EB");
}

TEST(Table, CellsAlignByWhatTheyTakeOnTheTerminal) {
  Table table({{"NAME"}, {"SIZE", Table::Align::right}, {"PATH"}});
  table.addRow({"東京", "1.5 GB", "/a"});
  table.addRow({"evil\n\x1b[31m", "", "/much/longer"});
  EXPECT_EQ(table.text(kPlain),
            "NAME                SIZE  PATH\n"
            "東京              1.5 GB  /a\n"
            "evil\\x0a\\x1b[31m       -  /much/longer\n");
}

TEST(Table, ColourAddsNothingButColour) {
  Table table({{"NAME"}, {"PATH"}});
  table.addRow({"a", "b"});
  const std::string heading = "\x1b[1mNAME\x1b[0m";
  EXPECT_EQ(table.text(Style(true)).substr(0, heading.size()), heading);
  EXPECT_EQ(table.text(kPlain), "NAME  PATH\na     b\n");
}

TEST(EventText, ARenameTellsBothPathsOnOneLine) {
  const Dictionary drive{{"DAVolumePath", URL::fileURLWithPath("/media/new\n", true)},
                         {"driveOldURLKey", URL::fileURLWithPath("/media/old", true)},
                         {"DAVolumeName", "new"},
                         {"DAVolumeKind", "exfat"},
                         {"DAMediaSize", 32'000'000'000},
                         {"DAMediaRemovableActual", true}};
  const std::string line = eventAsText(DriveEvent::changed, std::chrono::system_clock::now(), drive, kPlain);
  EXPECT_EQ(line.substr(8),
            "  changed  /media/new\\x0a (was /media/old)  \"new\"  exfat, 32 GB, removable\n");
}

TEST(EventText, ARefusalIsASentenceWithItsNumbers) {
  const Dictionary refusal{
      {"DAVolumePath", URL::fileURLWithPath("/media/card", true)}, {"status", dissent::kBusy}, {"pid", 4711}};
  const std::string line =
      eventAsText(DriveEvent::ejectionRejected, std::chrono::system_clock::now(), refusal, kPlain);
  EXPECT_EQ(line.substr(8),
            "  ejectionRejected  /media/card  something on it is in use (status 0xF8DA0002, process "
            "4711)\n");
  EXPECT_EQ(refusalText({{"status", 12}, {"pid", 0}}),
            "the system refused without a reason that is known here (status 12)");
}

TEST(Arguments, SecondsAreDecimalNumbersThatAreNotNegative) {
  EXPECT_EQ(parseSeconds("0.25"), 0.25);
  EXPECT_EQ(parseSeconds("1e3"), 1000.0);
  for (const char* text : {"", "-1", "-0", "nan", "inf", "0x10", "1s", " 1", "1e999"}) {
    EXPECT_EQ(parseSeconds(text), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace kmv::tool
