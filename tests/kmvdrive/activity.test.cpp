// SPDX-License-Identifier: MIT
#include "kmvdrive/Activity.h"
#include "kmvdrive/DisplayText.h"
#include "kmvdrive/Screen.h"
#include "support/Testing.h"

namespace kmv::tool {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;

class Board : public ::testing::Test {
 protected:
  static URL url(const std::string& name) { return URL::fileURLWithPath("/m/" + name, true); }
  static std::shared_ptr<KMVDriveActivityDelta> delta(std::uint64_t bytes) {
    return std::make_shared<KMVDriveActivityDelta>(2, bytes);
  }
  /// Two volumes of one disk, and a share that nobody measures.
  MountedDictionaries drives() const {
    const auto drive = [](const std::string& name, const std::shared_ptr<Object>& wrapper) {
      Dictionary contents{{"DAVolumePath", url(name)}, {"DAVolumeName", name}, {"DAVolumeKind", "ext4"}};
      if (wrapper != nullptr) contents.set("kDiskWrapperKey", wrapper);
      return std::pair(url(name), std::make_shared<const Dictionary>(contents));
    };
    return MountedDictionaries({drive("a", first_), drive("b", second_), drive("c", nullptr)});
  }
  static Measure measureOf(const URL& drive) {
    return drive == url("c") ? Measure::notAtAll : Measure::byPlatform;
  }

  ActivityBoard board;

 private:
  std::shared_ptr<KMVRootDiskWrapper> disk_ = std::make_shared<KMVRootDiskWrapper>(Value(1));
  std::shared_ptr<Object> first_ = std::make_shared<KMVVolumePartitionWrapper>(nullptr, disk_);
  std::shared_ptr<Object> second_ = std::make_shared<KMVVolumePartitionWrapper>(nullptr, disk_);
};

TEST_F(Board, CountsEachDiskOnceAndLeavesStepsBackOut) {
  const auto busy = std::make_shared<KMVDriveIOActivity>(delta(2000), nullptr);
  board.update(drives(), {{url("a"), busy}, {url("b"), busy}}, measureOf);
  EXPECT_EQ(board.totalRead(), 1000);
  EXPECT_EQ(board.totalWritten(), 0);
  EXPECT_EQ(board.lines()[2].measure, Measure::notAtAll);
  const auto back = std::make_shared<KMVDriveIOActivity>(delta(UINT64_MAX - 5), delta(10));
  board.update(drives(), {{url("a"), back}}, measureOf);
  EXPECT_EQ(board.totalRead(), 0) << "another disk in its place is no spike";
  EXPECT_EQ(board.totalWritten(), 5);
  EXPECT_THAT(board.lines()[0].history, ElementsAre(1000, 5));
  for (std::size_t i = 0; i < ActivityBoard::kHistory; ++i) board.update(drives(), {}, measureOf);
  EXPECT_EQ(board.lines()[0].history.size(), ActivityBoard::kHistory);

  EXPECT_EQ(
      jsonOfActivities({{url("a"), back}, {url("b"), busy}}).dump(),
      R"({"file:///m/a/":{"written":{"bytes":10,"seconds":2.0}},"file:///m/b/":{"read":{"bytes":2000,"seconds":2.0}}})");
}

TEST_F(Board, FitsItsTerminal) {
  const auto busy = std::make_shared<KMVDriveIOActivity>(delta(2'000'000), delta(3000));
  board.update(drives(), {{url("a"), busy}}, measureOf);
  const auto wide = board.asText(Style(false), 200, /*blocks=*/true);
  ASSERT_EQ(wide.size(), 5u) << "a heading, three drives, the total";
  EXPECT_THAT(wide[1], HasSubstr("1.0 MB/s  1.5 kB/s  ████████████  █"));
  EXPECT_THAT(wide[3], HasSubstr("not measured"));
  EXPECT_THAT(wide[4], HasSubstr("all disks"));
  for (const std::string& line : board.asText(Style(false), 30, /*blocks=*/false)) {
    EXPECT_LE(displayWidth(line), 30u);
    for (const char c : line) EXPECT_TRUE(c >= 0x20 && c < 0x7f);
  }
  EXPECT_EQ(Screen::frame({"a", "b"}), "\x1b[H\x1b[Ka\r\n\x1b[Kb\x1b[J");
  EXPECT_EQ(clippedText("aü界b", 3), "aü");
}

}  // namespace
}  // namespace kmv::tool
