// SPDX-License-Identifier: MIT
#include "support/Registry.h"

namespace kmv::simulation {
namespace {

using std::chrono::seconds;

TEST(Space, IsToldOnTheMainQueueWithinTheLimitAndAVolumeThatHangsIsAskedOnce) {
  auto& machine = SimulatedPlatform::install(0);
  const auto card = machine.plugIn({.name = "Card", .mountPoint = "/Volumes/Card"});
  const auto slow = machine.plugIn({.name = "Slow", .mountPoint = "/Volumes/Slow"});
  const Space room{1000, 400, 300};
  machine.setSpace(card, room);
  machine.setSpace(slow, room);
  machine.setAnswerTime(slow, seconds(10));
  std::vector<std::string> told;
  const auto ask = [&](const char* place, seconds limit) {
    askForSpace(*URL::fromString(place), limit, [&, place](const std::optional<Space>& space) {
      EXPECT_EQ(machine.currentQueueLabel(), "main");
      EXPECT_TRUE(!space || *space == room);
      told.push_back(std::string(place) + (space ? " " : " - ") +
                     std::to_string(machine.now().count() / 1'000'000'000));
    });
  };
  ask("file:///Volumes/Card/missing", seconds(1));
  ask("http://host/x", seconds(1));
  ask("file:///Volumes/Card/", seconds(1));
  ask("file:///Volumes/Slow/", seconds(3));
  mainQueue().after(seconds(2), [&] { ask("file:///Volumes/Slow/", seconds(30)); });
  machine.advance(seconds(30));
  EXPECT_THAT(told, ::testing::UnorderedElementsAre("file:///Volumes/Card/missing - 0", "http://host/x - 0",
                                                    "file:///Volumes/Card/ 0", "file:///Volumes/Slow/ - 3",
                                                    "file:///Volumes/Slow/ 10"));
}

TEST(Space, OfThisMachineIsWhatItsSystemSays) {
  std::optional<Space> own;
  askForSpace(URL::fileURLWithPath("/", true), std::chrono::minutes(1), [&](const auto& space) {
    own = space;
    mainQueue().stop();
  });
  mainQueue().run();
  ASSERT_TRUE(own);
  EXPECT_EQ(own->total, std::filesystem::space("/").capacity);
  EXPECT_LE(own->available, own->free);
}

}  // namespace
}  // namespace kmv::simulation
