// SPDX-License-Identifier: MIT
#include "support/Testing.h"

namespace kmv {
namespace {

using Registration = NotificationCenter::Registration;

struct NotificationCenterTest : testing::Test {
  auto noting(char letter) {
    return [this, letter](const Notification&) { heard += letter; };
  }
  auto add(std::optional<std::string_view> name, char letter, const void* object = nullptr) {
    return center->addObserver(name, noting(letter), object);
  }
  std::string post(const std::string& name, const NotificationObject& object = {}) {
    heard.clear();
    center->post({name, object, nullptr});
    return heard;
  }
  std::unique_ptr<NotificationCenter> center = std::make_unique<NotificationCenter>();
  std::string heard;
};

TEST_F(NotificationCenterTest, CallsInOrderOfRegistrationAndFiltersObjectsByIdentity) {
  const auto drive = std::make_shared<DriveDictionary>(Dictionary{{"k", 1}});
  const auto twin = std::make_shared<DriveDictionary>(Dictionary{{"k", 1}});
  const Registration all[] = {add("name", 'a'), add(std::nullopt, 'b'), add("name", 'c', drive.get()),
                              add("other", 'd'), add(std::nullopt, 'e')};
  EXPECT_EQ(post("name"), "abe");
  EXPECT_EQ(post("name", twin), "abe");
  EXPECT_EQ(post("name", drive), "abce");
  EXPECT_EQ(post("other"), "bde") << "a new name begins with the observers of all names";
  EXPECT_EQ(post("unheard of"), "be");
  EXPECT_EQ(NotificationObject(drive).dictionary()->doubleValue("k"), 1);
  EXPECT_EQ(NotificationObject(drive->snapshot()).drive(), nullptr);
}

TEST_F(NotificationCenterTest, LetsObserversChangeTheListWhileTheyRun) {
  Registration added, self, last;
  const auto first = center->addObserver("n", [&](const Notification&) {
    heard += '1';
    last.unregister();
    added = add("n", '3');
  });
  self = center->addObserver("n", [&](const Notification&) {
    heard += 's';
    self.unregister();
  });
  last = add("n", '2');
  EXPECT_EQ(post("n"), "1s") << "removed ones are not called any more, new ones not yet";
  EXPECT_EQ(post("n"), "1") << "the new one was replaced by the next new one";
}

TEST_F(NotificationCenterTest, RegistrationsEndWithTheirOwnerAndOutliveTheCentre) {
  { const auto shortLived = add("n", 'x'); }
  auto kept = add("n", '1');
  Registration moved = std::move(kept);
  EXPECT_EQ(post("n"), "1");
  moved = add("n", '2');  // ends the one it held
  EXPECT_EQ(post("n"), "2");
  center.reset();
  moved.unregister();
}

TEST_F(NotificationCenterTest, SurvivesPostsAndChangesFromManyThreads) {
  std::atomic<int> calls{0};
  std::atomic<bool> done{false};
  const auto steady = center->addObserver("n", [&](const Notification&) { ++calls; });
  std::thread poster([&] {
    for (int i = 0; i < 2000; ++i) center->post({"n", {}, nullptr});
    done = true;
  });
  while (!done) {
    const auto passing = center->addObserver(calls % 2 ? std::optional<std::string_view>("n") : std::nullopt,
                                             [](const Notification&) {});
  }
  poster.join();
  EXPECT_EQ(calls, 2000);
}

}  // namespace
}  // namespace kmv
