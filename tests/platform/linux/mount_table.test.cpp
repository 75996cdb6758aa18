// SPDX-License-Identifier: MIT
// One table for everybody: who follows it is told every difference, whoever else made the table catch up.
#include "platform/linux/mounts/MountTable.h"

#include "platform/linux/FakeMachine.h"
#include "platform/linux/LinuxPlatform.h"
#include "platform/linux/ModelBench.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// Stands on nothing.
MountEntry mountAt(std::uint64_t id, const std::string& point) {
  MountEntry entry = mount(id, {8, static_cast<std::uint32_t>(id)}, point);
  entry.parent = 0;
  return entry;
}

/// Reports what the test has put there, and counts how often the table was to be read again.
class ScriptedWatcher final : public MountTableWatcher {
 public:
  using Next = std::optional<MountTableWatcher::Changes>;
  ScriptedWatcher(Next& next, int& readings) : next_(next), readings_(readings) {}
  Next refresh(bool anew) override {
    readings_ += anew;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(anew);  // a long table
    while (std::chrono::steady_clock::now() < end) continue;
    return std::exchange(next_, Changes());
  }
  std::unique_ptr<MountChangeProbe> makeProbe() const override { return nullptr; }
  std::string name() const override { return "script"; }

 private:
  Next& next_;
  int& readings_;
};

/// A difference as "-/a+/b".
std::string text(const MountDelta& delta) {
  std::string line;
  for (const MountEntry& entry : delta.detached) line += "-" + entry.point;
  for (const MountEntry& entry : delta.attached) line += "+" + entry.point;
  return line;
}

class SharedTable : public ::testing::Test {
 protected:
  void attach(const MountEntry& entry) { next = {{{{}, {entry}}}}; }
  void detach(const MountEntry& entry) { next = {{{{entry}, {}}}}; }

  static std::vector<std::string> texts(const MountDeltas& deltas) {
    std::vector<std::string> lines;
    for (const auto& delta : deltas) lines.push_back(text(*delta));
    return lines;
  }
  std::vector<std::string> points() {
    std::vector<std::string> all;
    isKnown = table->read([&](const MountTree& tree) {
      tree.forEach([&](const MountEntry& entry, std::string_view) { all.push_back(entry.point); });
    });
    return all;
  }

  ScriptedWatcher::Next next = MountTableWatcher::Changes();
  bool isKnown = false;
  int readings = 0;
  std::shared_ptr<MountTable> table = std::make_shared<MountTable>(
      std::make_unique<ScriptedWatcher>(next, readings), [](const MountEntry&, bool) { return true; });
};

TEST_F(SharedTable, TellsEachFollowerEveryDifferenceWhoeverCaughtUp) {
  MountFollower first(table);
  attach(mountAt(1, "/a"));
  EXPECT_THAT(points(), ElementsAre("/a")) << "a reader takes nothing from followers";
  MountFollower second(table);
  detach(mountAt(1, "/a"));
  EXPECT_THAT(texts(first.take()), ElementsAre("+/a", "-/a"));
  EXPECT_THAT(texts(second.take()), ElementsAre("+/a", "-/a"))
      << "what was there when it came, and what followed";
  EXPECT_THAT(texts(first.take()), IsEmpty());
  EXPECT_THAT(points(), IsEmpty());
  attach(mountAt(2, "/b"));
  first.read([&](const MountDeltas& deltas, const MountTree& tree) {
    EXPECT_THAT(texts(deltas), ElementsAre("+/b"));
    EXPECT_NE(tree.mountWithReusedId(2), nullptr) << "the tree that results";
  });
}

TEST_F(SharedTable, HidesAndShowsWhatStandsOnAMountThatIsHidden) {
  MountEntry root = mountAt(1, "/"), lower = mountAt(2, "/x/a"), upper = mountAt(3, "/x/a/b"),
             over = mountAt(4, "/x");
  lower.parent = over.parent = 1;
  upper.parent = 2;
  const auto hidden = [&] {
    std::string points;
    table->read([&](const MountTree& tree) {
      tree.forEach(
          [&](const MountEntry& entry, std::string_view rule) { points += rule.empty() ? "" : entry.point; });
    });
    return points;
  };
  next = {{{{}, {root, lower, upper}}}};
  EXPECT_EQ(hidden(), "");
  attach(over);
  EXPECT_EQ(hidden(), "/x/a/x/a/b");
  detach(over);
  EXPECT_EQ(hidden(), "");
}

TEST_F(SharedTable, StaysAsItIsKnownWhenItCannotBeRead) {
  MountFollower follower(table);
  attach(mountAt(1, "/a"));
  points();
  next = std::nullopt;
  EXPECT_THAT(points(), ElementsAre("/a"));
  EXPECT_FALSE(isKnown);
  EXPECT_THAT(points(), ElementsAre("/a"));
  EXPECT_TRUE(isKnown);
}

TEST_F(SharedTable, IsNotReadAgainForEachOfManyQuestionsInARow) {
  constexpr int kQuestions = 50;
  const auto ignore = [](const MountTree&) {};
  for (int i = 0; i < kQuestions; ++i) table->readThrottled(ignore);
  EXPECT_GE(readings, 1);
  EXPECT_LT(readings, kQuestions);
  readings = 0;
  for (int i = 0; i < kQuestions; ++i) table->readAnew(ignore);
  EXPECT_EQ(readings, kQuestions) << "where only what is true now will do";
}

TEST_F(SharedTable, KeepsLittleForAFollowerThatStaysAway) {
  MountFollower follower(table);
  attach(mountAt(1, "/stays"));
  points();
  for (std::uint64_t id = 2; id < 2000; ++id) {
    attach(mountAt(id, "/passes"));
    points();
    detach(mountAt(id, "/passes"));
    points();
  }
  MountDeltas deltas = follower.take();
  std::size_t records = 0;
  for (const auto& delta : deltas) records += delta->attached.size() + delta->detached.size();
  EXPECT_LT(records, 600u);
  EXPECT_EQ(text(joinMountDeltas(deltas)), "+/stays");
}

TEST(MountDeltas, JoinToWhatTheyComeTo) {
  const MountEntry a = mountAt(1, "/a"), moved = mountAt(1, "/moved"), b = mountAt(2, "/b");
  const auto one = [](std::vector<MountEntry> detached, std::vector<MountEntry> attached) {
    return std::make_shared<const MountDelta>(MountDelta{std::move(detached), std::move(attached)});
  };
  const std::pair<MountDeltas, std::string> cases[] = {
      {{one({}, {b}), one({b}, {})}, ""},
      {{one({a}, {moved}), one({moved}, {})}, "-/a"},
      {{one({a}, {}), one({}, {a})}, "-/a+/a"},
      {{one({a}, {moved}), one({moved}, {b, a})}, "-/a+/a+/b"}};
  for (const auto& [deltas, joined] : cases) EXPECT_EQ(text(joinMountDeltas(deltas)), joined);
}

TEST(PlainTable, IsReadAtEachQuestionSinceNothingReportsItsChange) {
  FakeMachine machine;
  const auto table = machine.mountTable();
  MountFollower follower(table);
  for (const std::size_t count : {1u, 0u, 1u}) {
    machine.mounts(count == 0 ? "" : "29 1 8:1 / /a rw - ext4 /dev/sda1 rw\n");
    EXPECT_EQ(follower.take().size(), 1u) << "it came or went";
    table->read([&](const MountTree& tree) { EXPECT_EQ(tree.mountWithReusedId(29) != nullptr, count == 1); });
  }
}

TEST(AnotherProcess, HasItsMountsListedAndItsPathsAskedBelowItsRoot) {
  FakeMachine machine;
  machine.mounts("29 1 8:1 / /own rw - ext4 /dev/sda1 rw\n");
  machine.mounts("29 1 8:1 / /its rw - ext4 /dev/sda1 rw\n", "4711");
  LinuxOptions options = machine.options();
  options.mountTableOf = "4711";
  LinuxPlatform platform(options);
  EXPECT_THAT(platform.volumes().mountedVolumeURLs(), ElementsAre(URL::fileURLWithPath("/its", true)));
  EXPECT_EQ(options.view(), options.viewRoot) << "what was given counts";
  options.viewRoot.clear();
  EXPECT_EQ(options.view(), options.procRoot + "/4711/root");
  options.mountTableOf = "self";
  EXPECT_EQ(options.view(), "");
}

TEST(AnotherProcess, LooksItemsUpByThatProcessesMounts) {
  LinuxPlatform own;
  const auto expected = own.volumes().volumeURL(URL::fileURLWithPath("/", true));
  LinuxOptions options;
  options.mountTableOf = std::to_string(::getpid());
  LinuxPlatform other(options);
  EXPECT_EQ(other.volumes().volumeURL(URL::fileURLWithPath("/", true)), expected);
  EXPECT_EQ(other.volumes().mountedVolumeURLs(), own.volumes().mountedVolumeURLs());
}

}  // namespace
}  // namespace kmv::test
