// SPDX-License-Identifier: MIT
#include "platform/linux/mounts/MountInfo.h"

#include "platform/linux/FakeMachine.h"
#include "platform/linux/mounts/MountInfoWatcher.h"
#include "support/Testing.h"

namespace kmv {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::SizeIs;

TEST(MountInfo, ReadsALineOfADesktop) {
  const auto entry = parseMountLine(
      "98 29 8:17 / /media/kim/Card rw,nosuid shared:51 master:3 - vfat /dev/sdb1 rw,fmask=0022");
  ASSERT_TRUE(entry);
  EXPECT_EQ(entry->id, 98u);
  EXPECT_EQ(entry->parent, 29u);
  EXPECT_EQ(entry->device, (DeviceNumber{8, 17}));
  EXPECT_EQ(entry->point, "/media/kim/Card");
  EXPECT_EQ(entry->kind, "vfat");
  EXPECT_EQ(entry->source, "/dev/sdb1");
  EXPECT_EQ(entry->superOptions, "rw,fmask=0022");
  const auto sourceless = parseMountLine("50 22 0:41 / /mnt rw,relatime - tmpfs  rw,size=4k");
  ASSERT_TRUE(sourceless);
  EXPECT_EQ(sourceless->source + "|" + sourceless->superOptions, "|rw,size=4k") << "fields keep their places";
}

TEST(MountInfo, DecodesNamesToTheirBytes) {
  EXPECT_EQ(decodeOctal("a\\040b\\011c\\012d"), "a b\tc\nd");
  EXPECT_EQ(decodeOctal("literal\\134040"), "literal\\040");
  EXPECT_EQ(decodeOctal("no\\04 escape\\089 here\\"), "no\\04 escape\\089 here\\");
  EXPECT_EQ(decodeOctal("k\xff\xfel\"é"), "k\xff\xfel\"é");
  const auto deleted = parseMountLine("9 2 8:1 /src//deleted /mnt/b\\040d rw - ext4 a\\043b rw");
  ASSERT_TRUE(deleted);
  EXPECT_EQ(deleted->root, "/src//deleted");
  EXPECT_EQ(deleted->point, "/mnt/b d");
  EXPECT_EQ(deleted->source, "a#b");
}

TEST(MountInfo, SkipsWhatIsNoRecord) {
  for (const std::string line :
       {"", " ", "1 2 3:4 / /a rw", "1 2 3:4 / /a rw shared:1", "1 2 3:4 / /a rw -", "1 2 3:4 / /a rw - ext4",
        "x 2 3:4 / /a rw - ext4 s rw", "1 2 34 / /a rw - ext4 s rw", "1 2 3:4 / a rw - ext4 s rw"}) {
    EXPECT_FALSE(parseMountLine(line)) << line;
  }
  EXPECT_THAT(
      parseMountInfo("garbage\n1 0 8:1 / / rw - ext4 s rw\n1 0 8:2 / /twice rw - ext4 s rw\nhalf a li"),
      SizeIs(1));
}

TEST(MountInfo, FindsAnOptionByItsWholeName) {
  EXPECT_EQ(mountOption("rw,notsubvol=x,subvolid=5,subvol=/@", "subvol"), "/@");
  EXPECT_FALSE(mountOption("rw,subvolid=5", "subvol"));
}

// How the table differs between two reads.

std::string line(int id, const std::string& point, const std::string& rest = "rw - ext4 /dev/sda1 rw") {
  return std::to_string(id) + " 1 8:1 / " + point + " " + rest + "\n";
}

std::vector<std::string> points(const std::vector<MountEntry>& entries) {
  std::vector<std::string> texts;
  for (const MountEntry& entry : entries) texts.push_back(entry.point);
  return texts;
}

/// The file read again tells what two whole tables, compared, tell.
class MountTables : public ::testing::Test {
 protected:
  MountDelta next(const std::string& text) {
    machine_.mounts(text);
    auto newer = parseMountInfo(text);
    auto delta = diffMountTables(table_, newer);
    table_ = std::move(newer);
    const auto watched = watcher_.refresh(false);
    const MountDelta told = watched->empty() ? MountDelta() : watched->front();
    EXPECT_EQ(points(told.detached), points(delta.detached)) << text;
    EXPECT_EQ(points(told.attached), points(delta.attached)) << text;
    for (std::size_t i = 1; i < table_.size(); ++i) EXPECT_LT(table_[i - 1].order, table_[i].order);
    return delta;
  }
  test::FakeMachine machine_;
  MountInfoWatcher watcher_{machine_.options()};
  std::vector<MountEntry> table_;
};

TEST_F(MountTables, AreComparedWholeOrWhereTheyDiffer) {
  std::mt19937 random(7);
  std::vector<std::string> lines;
  const auto at = [&](std::size_t place) { return lines.begin() + static_cast<std::ptrdiff_t>(place); };
  for (int step = 0; step < 400 && !HasFailure(); ++step) {
    const int id = static_cast<int>(random() % 90);
    const std::string beginning = std::to_string(id) + " ";
    std::erase_if(lines, [&](const std::string& one) { return one.starts_with(beginning); });
    const std::string point = "/" + std::string(random() % 4, '1') + std::to_string(id % 3);
    lines.insert(at(random() % (lines.size() + 1)), id % 9 == 0 ? "no record\n" : line(id, point));
    while (lines.size() > random() % 40 + 1) lines.erase(at(random() % lines.size()));
    std::string text;
    for (const std::string& one : lines) text += one;
    next(text.substr(0, text.size() - random() % 2));  // with and without its last line feed
  }
  const std::string torn = line(2, "/before") + line(3, "/b") + line(2, "/behind");  // it moved meanwhile
  next(torn);
  next(torn.substr(torn.find('\n') + 1));
}

TEST_F(MountTables, IgnoreARemountButNotAReusedId) {
  next(line(1, "/") + line(2, "/a"));
  EXPECT_TRUE(next(line(1, "/") + line(2, "/a", "ro - ext4 /dev/sda1 ro")).empty());
  const MountDelta delta = next(line(1, "/") + line(2, "/a", "rw - ext4 /dev/sdb1 rw"));
  EXPECT_THAT(delta.detached, SizeIs(1));
  EXPECT_THAT(delta.attached, SizeIs(1));
}

TEST_F(MountTables, KeepTheOrderOfAMountThatMovedAndReportEachReorderingAsMoves) {
  next(line(1, "/") + line(2, "/a") + line(3, "/b"));
  const std::uint64_t before = table_[1].order;
  next(line(1, "/") + line(2, "/moved") + line(3, "/b"));
  EXPECT_EQ(table_[1].order, before);
  const MountDelta delta = next(line(1, "/") + line(3, "/b") + line(2, "/moved"));
  EXPECT_THAT(points(delta.detached), ElementsAre("/moved"));
  EXPECT_THAT(points(delta.attached), ElementsAre("/moved"));
}

}  // namespace
}  // namespace kmv
