// SPDX-License-Identifier: MIT
// What every backend says of the volumes that are mounted, and of the one that holds a place.
#include "contract/Harness.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

using ::testing::ElementsAre;

TEST_P(VolumesContract, AreListedInTheOrderOfTheirMountsWithoutThoseThatAreNoDrives) {
  harness().mount(harness().plugIn("SECOND"), "second");
  harness().mountPathVolume("share");
  const std::string kind = harness().mountHidden("hidden");
  harness().mount(harness().plugIn("FIRST"), "first");
  EXPECT_THAT(listed(), ElementsAre("second", "share", "first"));
  const auto hidden = platform().volumes().hiddenMounts();
  const auto one = std::find_if(hidden.begin(), hidden.end(),
                                [&](const HiddenMount& mount) { return mount.path == path("hidden"); });
  ASSERT_NE(one, hidden.end());
  EXPECT_EQ(one->rule, "pseudo");
  EXPECT_EQ(one->kind, kind);
  harness().unmount("share");
  EXPECT_THAT(listed(), ElementsAre("second", "first"));
}

TEST_P(VolumesContract, EveryItemIsHeldByTheVolumeThatItsPathLeadsTo) {
  const std::string card = harness().plugIn("CARD"), other = harness().plugIn("OTHER");
  harness().mount(card, "card");
  harness().mount(other, "card/inner");
  harness().writeFile("card/folder/file", "x");
  harness().writeFile("card/inner/file", "x");
  harness().createLink("card/to inner", "inner/file");
  harness().createLink("card/dangling", "missing");
  harness().createLink("outside", "card/folder");
  const std::pair<const char*, const char*> cases[] = {{"card", "card"},
                                                       {"card/folder", "card"},
                                                       {"card/folder/file", "card"},
                                                       {"card/inner", "card/inner"},
                                                       {"card/inner/file", "card/inner"},
                                                       {"card/folder/../inner/file", "card/inner"},
                                                       {"outside/file", "card"},
                                                       {"card/missing", "none"},
                                                       {"card/dangling/file", "none"}};
  for (const auto& [name, point] : cases) EXPECT_EQ(holderOf(name), point) << name;
  EXPECT_EQ(platform().volumes().volumeURL(*URL::fromString("http://host/x")), std::nullopt);
  harness().unmount("card/inner");
  EXPECT_EQ(holderOf("card/inner/file"), "none");
  harness().move("card", "moved");
  EXPECT_EQ(holderOf("moved/folder/file"), "moved");
  EXPECT_EQ(holderOf("outside/file"), "none");
}

TEST_P(VolumesContract, TheNewestMountHidesWhatIsMountedAtItsPointAndBelow) {
  if (!harness().canHideMounts()) return;
  harness().mountPathVolume("share");
  for (const char* point : {"card", "card/inner", "card", "share"})
    harness().mount(harness().plugIn("CARD"), point);
  harness().writeFile("card/newest", "x");
  EXPECT_THAT(listed(), ElementsAre("card", "share"));
  EXPECT_EQ(holderOf("card/inner"), "none");
  std::vector<std::string> hidden;
  for (const HiddenMount& mount : platform().volumes().hiddenMounts())
    if (mount.path.starts_with(path("")))
      hidden.push_back(mount.rule + mount.path.substr(path("").size() - 1));
  EXPECT_THAT(hidden, ElementsAre("covered/share", "covered/card", "shadowed/card/inner"));
  harness().unmount("share");
  harness().unmount("card");
  EXPECT_THAT(listed(), ElementsAre("share", "card", "card/inner"));
  EXPECT_EQ(holderOf("card/newest"), "none");
}

}  // namespace
}  // namespace kmv::test
