// SPDX-License-Identifier: MIT
// What every backend's session promises to whoever listens.
#include "contract/SessionContract.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::UnorderedElementsAre;

TEST_P(SessionContract, ReportsWhatExistsThenWhatChangesOnItsQueueWithTheDescriptionsOfTheMoment) {
  harness().mount(plugIn("OLD"), "old");
  const std::string card = plugIn("CARD");
  recorder().start();
  ASSERT_TRUE(harness().runUntil([&] { return !recorder().linesOfTheStart().empty(); }));
  EXPECT_THAT(heard(2), UnorderedElementsAre("appeared OLD at old", "appeared CARD"));
  recorder().queue().sync([&] {
    harness().mount(card, "card");
    EXPECT_NE(diskAt("card"), nullptr);
    harness().unmount("card");
    EXPECT_EQ(diskAt("card"), nullptr);
    EXPECT_THAT(recorder().lines(), IsEmpty()) << "its queue is busy";
  });
  EXPECT_THAT(heard(2), ElementsAre("changed CARD at card (DAVolumePath)", "changed CARD (DAVolumePath)"));
  EXPECT_THAT(recorder().linesOfTheStart(), ElementsAre(2u));
  EXPECT_TRUE(recorder().wasAlwaysOnItsQueue());
}

TEST_P(SessionContract, ADiskWithADeviceOutlivesItsMountsAndKeepsItsAppearanceTimeUntilItIsUnplugged) {
  recorder().start();
  const std::string card = plugIn("CARD");
  EXPECT_THAT(heard(1), ElementsAre("appeared CARD"));
  const double appeared = appearanceTime();
  EXPECT_GT(appeared, 0);
  harness().mount(card, "first");
  EXPECT_THAT(heard(1), ElementsAre("changed CARD at first (DAVolumePath)"));
  EXPECT_EQ(recorder().last().boolValue(key::kVolumeMountable), true);
  EXPECT_EQ(appearanceTime(), appeared);
  harness().move("first", "second");
  const SessionRecorder::Lines moved = {"changed CARD at second (DAVolumePath)"},
                               replaced = {"disappeared CARD at first", "appeared CARD at second"};
  const auto& expected = harness().hasMoveEvent() ? moved : replaced;
  EXPECT_EQ(heard(expected.size()), expected);
  EXPECT_EQ(appearanceTime(), appeared);
  harness().unmount("second");
  EXPECT_THAT(heard(1), ElementsAre("changed CARD (DAVolumePath)"));
  EXPECT_EQ(appearanceTime(), appeared);
  harness().unplug(card);
  EXPECT_THAT(heard(1), ElementsAre("disappeared CARD"));
  plugIn("CARD");
  EXPECT_THAT(heard(1), ElementsAre("appeared CARD"));
  EXPECT_NE(appearanceTime(), appeared);
}

TEST_P(SessionContract, ADiskWithoutADeviceExistsWhileItIsMounted) {
  harness().mountPathVolume("early");
  recorder().start();
  EXPECT_THAT(heard(1), ElementsAre("appeared early at early"));
  harness().mountPathVolume("share");
  EXPECT_THAT(heard(1), ElementsAre("appeared share at share"));
  EXPECT_FALSE(recorder().last().contains(key::kMediaBSDName));
  EXPECT_FALSE(recorder().last().contains(key::kVolumeUUID));
  harness().unmount("share");
  EXPECT_THAT(heard(1), ElementsAre("disappeared share at share"));
}

TEST_P(SessionContract, AHiddenVolumeHasNoPathUntilItIsReachedAgainAndCommandsAreAboutTheNewest) {
  if (!harness().canHideMounts()) return;
  harness().mount(plugIn("OLD"), "card");
  const std::string newer = plugIn("NEW"), over = plugIn("OVER");
  harness().mountPathVolume("share");
  recorder().start();
  EXPECT_EQ(heard(4).size(), 4u);
  const auto old = diskAt("card");
  harness().mount(newer, "card");
  EXPECT_THAT(heard(2), ElementsAre("changed OLD (DAVolumePath)", "changed NEW at card (DAVolumePath)"));
  harness().mount(over, "share");
  EXPECT_THAT(heard(2), ElementsAre("disappeared share at share", "changed OVER at share (DAVolumePath)"));
  EXPECT_EQ(*diskAt("card")->copyDescription()->text(key::kVolumeName), "NEW");
  session().unmount(*old, &SessionRecorder::answered, &recorder());
  EXPECT_THAT(heard(1), ElementsAre("answered " + std::to_string(dissent::kBusy) + " OLD"));
  harness().unmount("card");
  EXPECT_THAT(heard(2), ElementsAre("changed NEW (DAVolumePath)", "changed OLD at card (DAVolumePath)"));
  harness().unmount("share");
  EXPECT_THAT(heard(2), ElementsAre("changed OVER (DAVolumePath)", "appeared share at share"));
}

TEST_P(SessionContract, ADiskIsFoundExactlyWhereItIsMountedAndAsItWasReported) {
  const std::string card = plugIn("CARD");
  harness().mount(card, "card");
  harness().mountHidden("hidden");
  harness().writeFile("card/folder/file", "x");
  const auto early = diskAt("card");
  ASSERT_NE(early, nullptr) << "before anybody listens";
  EXPECT_EQ(*early->copyDescription()->text(key::kVolumeName), "CARD");
  recorder().start();
  EXPECT_THAT(heard(1), ElementsAre("appeared CARD at card"));
  const auto disk = diskAt("card");
  ASSERT_NE(disk, nullptr);
  EXPECT_EQ(disk->copyDescription(), recorder().last());
  for (const char* point : {"card/folder", "hidden", "missing"}) EXPECT_EQ(diskAt(point), nullptr) << point;
  EXPECT_EQ(session().diskFromVolumePath(*URL::fromString("http://host" + path("card"))), nullptr);
  harness().unmount("card");
  EXPECT_EQ(diskAt("card"), nullptr);
}

TEST_P(SessionContract, ACommandsEventsComeBeforeItsAnswerAndARefusalSaysWhy) {
  recorder().start();
  harness().mount(plugIn("CARD"), "card");
  ASSERT_TRUE(harness().runUntil([&] { return diskAt("card") != nullptr; }));
  settle();
  recorder().take();
  const auto disk = diskAt("card");
  const std::string busy = std::to_string(dissent::kBusy), bad = std::to_string(dissent::kBadArgument);

  session().rename(*disk, harness().nameToRefuse(), &SessionRecorder::answered, &recorder());
  EXPECT_THAT(heard(1), ElementsAre("answered " + bad + " CARD at card"));
  session().rename(*disk, "REEL", &SessionRecorder::answered, &recorder());
  EXPECT_THAT(heard(2), ElementsAre("changed REEL at card (DAVolumeName)", "answered 0 REEL at card"));

  const auto renamed = diskAt("card");
  const std::string holder = std::to_string(harness().hold("card"));
  session().unmount(*renamed, &SessionRecorder::answered, &recorder());
  EXPECT_THAT(heard(1), ElementsAre("answered " + busy + " by " + holder + " REEL at card"));
  harness().release();
  recorder().queue().sync([&] {
    session().unmount(*renamed, &SessionRecorder::answered, &recorder());
    EXPECT_THAT(recorder().lines(), IsEmpty());
  });
  EXPECT_THAT(heard(2), ElementsAre(::testing::StartsWith("changed REEL (DAVolume"), "answered 0 REEL"));
  EXPECT_TRUE(recorder().wasAlwaysOnItsQueue());
}

TEST_P(SessionContract, HearsNothingAfterItsEnd) {
  harness().mount(plugIn("CARD"), "card");
  recorder().start();
  const auto disk = diskAt("card");
  ASSERT_NE(disk, nullptr);
  settle();
  recorder().take();
  recorder().queue().sync([&] {
    harness().unmount("card");
    EXPECT_EQ(diskAt("card"), nullptr);
    recorder().close();
  });
  recorder().queue().sync([] {});
  EXPECT_THAT(recorder().lines(), IsEmpty()) << "what was still queued is dropped";
}

TEST_P(SessionContract, WrongUseStopsTheProcess) {
  const auto unbound = platform().makeDiskArbitrationSession();
  EXPECT_DEATH(unbound->registerCallbacks({}, nullptr), "KMVDriveLibrary: .*[qQ]ueue");
  recorder().start();
  EXPECT_DEATH(recorder().start(), "KMVDriveLibrary: .*(once|twice)");
  class Stranger : public Disk {
    std::optional<Dictionary> copyDescription() const override { return std::nullopt; }
  } const stranger;
  EXPECT_DEATH(session().unmount(stranger, nullptr, nullptr),
               "a command needs a disk that diskFromVolumePath gave");
}

}  // namespace
}  // namespace kmv::test
