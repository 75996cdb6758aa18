// SPDX-License-Identifier: MIT
#include "kmvdrive/Activity.h"
#include "kmvdrive/CommandLine.h"
#include "kmvdrive/DisplayText.h"
#include "kmvdrive/Output.h"
#include "kmvdrive/Screen.h"
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

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Board : public ::testing::Test {
 protected:
  static URL url(const std::string& name) { return URL::fileURLWithPath("/m/" + name, true); }
  static std::shared_ptr<KMVDriveActivityDelta> delta(std::uint64_t bytes) {
    return std::make_shared<KMVDriveActivityDelta>(2, bytes);
  }
  /// Two volumes that the platform measures, and a share that nobody does.
  static MountedDictionaries drives() {
    const auto drive = [](const std::string& name) {
      const Dictionary contents{
          {"DAVolumePath", url(name)}, {"DAVolumeName", name}, {"DAVolumeKind", "ext4"}};
      return std::pair(url(name), std::make_shared<const Dictionary>(contents));
    };
    return MountedDictionaries({drive("a"), drive("b"), drive("c")});
  }
  static Measure measureOf(const URL& drive) {
    return drive == url("c") ? Measure::notAtAll : Measure::byPlatform;
  }

  /// Both volumes are on one disk.
  static LoadMeter::Loads loads() {
    const DriveLoad disk{2, 2000, 10, 20, 0, 0.0005, 0, 0.25};
    return {{{url("a"), disk}, {url("b"), disk}}, disk};
  }

  ActivityBoard board;
};

TEST_F(Board, CountsEachDiskOnceAndLeavesStepsBackOut) {
  const auto busy = std::make_shared<KMVDriveIOActivity>(delta(2000), nullptr);
  board.update(drives(), {{url("a"), busy}, {url("b"), busy}}, measureOf, loads());
  EXPECT_EQ(board.totalRead(), 1000);
  EXPECT_EQ(board.totalWritten(), 5);
  EXPECT_EQ(board.lines()[2].measure, Measure::notAtAll);
  const auto back = std::make_shared<KMVDriveIOActivity>(delta(UINT64_MAX - 5), delta(10));
  const auto reported = [](const URL&) { return Measure::byReports; };
  board.update(drives(), {{url("a"), back}}, reported, {});
  EXPECT_EQ(board.totalRead(), 0) << "another disk in its place is no spike";
  EXPECT_EQ(board.totalWritten(), 5);
  EXPECT_THAT(board.lines()[0].history, ElementsAre(1000, 5));
  for (std::size_t i = 0; i < ActivityBoard::kHistory; ++i) board.update(drives(), {}, measureOf, {});
  EXPECT_EQ(board.lines()[0].history.size(), ActivityBoard::kHistory);

  EXPECT_EQ(
      jsonOfActivities({{url("a"), back}, {url("b"), busy}}).dump(),
      R"({"file:///m/a/":{"written":{"bytes":10,"seconds":2.0}},"file:///m/b/":{"read":{"bytes":2000,"seconds":2.0}}})");
}

TEST_F(Board, FitsItsTerminal) {
  const auto busy = std::make_shared<KMVDriveIOActivity>(delta(2'000'000), delta(3000));
  board.update(drives(), {{url("a"), busy}}, measureOf, loads());
  const auto wide = board.asText(Style(false), 200, /*blocks=*/true);
  ASSERT_EQ(wide.size(), 5u) << "a heading, the total, three drives";
  EXPECT_THAT(wide[0], HasSubstr("LAST 16, TO 1.0 MB/s"));
  EXPECT_THAT(
      wide[1],
      HasSubstr("all disks  -         1.0 kB/s     5 B/s       10         0  0.5 ms  ███           25%"));
  EXPECT_THAT(wide[2], HasSubstr("1.0 MB/s  1.5 kB/s       10         0  0.5 ms  ███           25%  █"));
  EXPECT_THAT(wide[4], HasSubstr("not measured"));
  for (const std::string& line : board.asText(Style(false), 30, /*blocks=*/false)) {
    EXPECT_LE(displayWidth(line), 30u);
    for (const char c : line) EXPECT_TRUE(c >= 0x20 && c < 0x7f);
  }
  EXPECT_EQ(Screen::frame({"a", "b"}), "\x1b[H\x1b[Ka\r\n\x1b[Kb\x1b[J");
  EXPECT_EQ(clippedText("aü界b", 3), "aü");
}

/// A pipe, closed at the end.
struct Pipe {
  Pipe() { EXPECT_EQ(pipe(ends.data()), 0); }
  ~Pipe() {
    for (const int end : ends) close(end);
  }
  std::array<int, 2> ends{};
};

class OutputTest : public testing::Test {
 protected:
  void SetUp() override { std::signal(SIGPIPE, SIG_IGN); }

  Pipe stop;
  Pipe reader;
  Output output{reader.ends[1], stop.ends[0]};
};

TEST_F(OutputTest, ALongTextReachesASlowReaderWhole) {
  const std::string text(1'000'000, 'x');
  std::string read;
  std::thread slow([&] {
    char bytes[1000];
    while (read.size() < text.size()) {
      const ssize_t count = ::read(reader.ends[0], bytes, sizeof bytes);
      if (count <= 0) break;
      read.append(bytes, static_cast<std::size_t>(count));
    }
  });
  EXPECT_TRUE(output.write(text));
  slow.join();
  EXPECT_EQ(read, text);
}

TEST_F(OutputTest, AReaderThatStandsStillDoesNotHinderAStopSignal) {
  ASSERT_EQ(write(stop.ends[1], "", 1), 1);
  EXPECT_TRUE(output.write("while there is room, lines are written whole\n"));
  EXPECT_FALSE(output.write(std::string(1'000'000, 'x')));
  EXPECT_FALSE(output.write("more")) << "ended is ended";
  EXPECT_FALSE(output.failed());
}

TEST_F(OutputTest, AReaderThatWentAwayIsNoErrorButAFullDiskIs) {
  close(reader.ends[0]);
  reader.ends[0] = open("/dev/null", O_RDONLY);
  EXPECT_FALSE(output.write("nobody reads"));
  EXPECT_FALSE(output.failed());

  const int full = open("/dev/full", O_WRONLY);
  ASSERT_GE(full, 0);
  Output onFullDisk(full, stop.ends[0]);
  EXPECT_FALSE(onFullDisk.write("text"));
  EXPECT_TRUE(onFullDisk.failed());
  EXPECT_FALSE(onFullDisk.failure().empty());
  close(full);
}

}  // namespace
}  // namespace kmv::tool
