// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/DriveDictionary.h>
#include <KMVDriveLibrary/NotificationCenter.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

namespace kmv {
namespace {

using Registration = NotificationCenter::Registration;

struct Listener {
  NotificationCenter center;
  std::string heard;
  auto noting(char letter) {
    return [this, letter](const Notification&) { heard += letter; };
  }
};

TEST(NotificationCenter, CallsInOrderOfRegistrationWhateverWasAskedFor) {
  Listener l;
  const auto a = l.center.addObserver("name", l.noting('a'));
  const auto b = l.center.addObserver(std::nullopt, l.noting('b'));
  const auto c = l.center.addObserver("name", l.noting('c'));
  const auto d = l.center.addObserver("other", l.noting('d'));
  const auto e = l.center.addObserver(std::nullopt, l.noting('e'));
  l.center.post({"name", {}, nullptr});
  EXPECT_EQ(l.heard, "abce");
  l.center.post({"unheard of", {}, nullptr});
  EXPECT_EQ(l.heard, "abcebe");
}

TEST(NotificationCenter, FiltersObjectsByIdentityNotByContent) {
  Listener l;
  const auto drive = std::make_shared<DriveDictionary>(Dictionary{{"k", 1}});
  const auto twin = std::make_shared<DriveDictionary>(Dictionary{{"k", 1}});
  const auto one = l.center.addObserver("n", l.noting('d'), drive.get());
  const auto any = l.center.addObserver("n", l.noting('*'));
  l.center.post({"n", twin, nullptr});
  l.center.post({"n", {}, nullptr});
  l.center.post({"n", drive, nullptr});
  EXPECT_EQ(l.heard, "**d*");
  EXPECT_EQ(NotificationObject(drive).dictionary()->doubleValue("k"), 1);
  EXPECT_EQ(NotificationObject(drive->snapshot()).drive(), nullptr);
}

TEST(NotificationCenter, LetsObserversChangeTheListWhileTheyRun) {
  Listener l;
  std::vector<Registration> more;
  Registration last;
  const auto first = l.center.addObserver("n", [&](const Notification&) {
    l.heard += '1';
    last.unregister();
    if (more.empty()) more.push_back(l.center.addObserver("n", l.noting('3')));
  });
  Registration self;
  self = l.center.addObserver("n", [&](const Notification&) {
    l.heard += 's';
    self.unregister();
  });
  last = l.center.addObserver("n", l.noting('2'));
  l.center.post({"n", {}, nullptr});
  EXPECT_EQ(l.heard, "1s") << "removed ones are not called any more, new ones not yet";
  l.center.post({"n", {}, nullptr});
  EXPECT_EQ(l.heard, "1s13");
}

TEST(NotificationCenter, RegistrationsEndWithTheirOwnerAndOutliveTheCentre) {
  auto center = std::make_unique<NotificationCenter>();
  int calls = 0;
  const auto count = [&](const Notification&) { ++calls; };
  { const auto shortLived = center->addObserver("n", count); }
  auto kept = center->addObserver("n", count);
  Registration moved = std::move(kept);
  center->post({"n", {}, nullptr});
  EXPECT_EQ(calls, 1);
  moved = center->addObserver("n", count);  // ends the one it held
  center->post({"n", {}, nullptr});
  EXPECT_EQ(calls, 2);
  center.reset();
  moved.unregister();
}

TEST(NotificationCenter, SurvivesPostsAndChangesFromManyThreads) {
  NotificationCenter center;
  std::atomic<int> calls{0};
  std::atomic<bool> done{false};
  const auto steady = center.addObserver("n", [&](const Notification&) { ++calls; });
  std::thread poster([&] {
    for (int i = 0; i < 2000; ++i) center.post({"n", {}, nullptr});
    done = true;
  });
  while (!done) {
    const auto passing = center.addObserver(calls % 2 ? std::optional<std::string_view>("n") : std::nullopt,
                                            [](const Notification&) {});
  }
  poster.join();
  EXPECT_EQ(calls, 2000);
}

}  // namespace
}  // namespace kmv
