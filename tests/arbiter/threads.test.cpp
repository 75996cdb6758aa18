// SPDX-License-Identifier: MIT
// The registry on the real queues, used from many threads at once. Nothing listens to the machine here: the
// threads play the platform.
#include "support/Testing.h"

namespace kmv {
namespace {

constexpr int kRounds = 400;

class Annotator : public KMVDiskAdditionalInformationProtocol {
  bool addInformationAboutDiskDictionary(const std::shared_ptr<DriveDictionary>& drive) override {
    drive->set("annotation", true);
    return true;
  }
};

class Threads : public ::testing::Test {
 protected:
  Threads() {
    arbiter.setPresentDiskDictionaries(std::make_shared<PresentDriveTable>());
    arbiter.addAdditionalInformationListener(std::make_shared<Annotator>());
  }

  static DictionarySnapshot volume(int number) {
    return std::make_shared<const Dictionary>(
        Dictionary{{"DAVolumePath", URL::fileURLWithPath("/media/" + std::to_string(number), true)},
                   {"DAVolumeMountable", true},
                   {"DAAppearanceTime", 100.0 + number}});
  }
  NotificationCenter::Registration follow(std::string_view name, int step, int balanceAfter) {
    return NotificationCenter::defaultCenter().addObserver(
        name, [this, step, balanceAfter](const Notification& news) {
          const auto contents = news.object.dictionary();
          int& count = balance[contents->url(kDiskURLKey)->path()];
          wrong = wrong || (count += step) != balanceAfter || !contents->contains("annotation");
          ++announced;
        });
  }

  KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  std::map<std::string, int> balance;  // only on the main queue, which this thread drains
  int announced = 0;
  std::atomic<bool> wrong{false};
  const NotificationCenter::Registration added = follow(kDiskArbiterNewDiskDetectedNotification, 1, 1),
                                         removed = follow(kDiskArbiterRemovedDiskDetectedNotification, -1, 0);
};

TEST_F(Threads, AdditionsAndRemovalsOfADriveAlternateForEveryObserver) {
  std::vector<std::thread> threads;
  std::atomic<int> running{4};
  for (int t = 0; t < 3; ++t) {
    threads.emplace_back(
        [&, t] {  // each its own three volumes, told on the arbiter queue as the platform does
          for (int i = 0; i < kRounds; ++i) {
            const auto description = volume(3 * t + i % 3);
            arbiter.arbiterQueue()->sync([&] { arbiter.addDiskWithRepresentationToTheList(description); });
            arbiter.removeDiskAtURLFromTheList(*description->url("DAVolumePath"));
          }
          --running;
        });
  }
  threads.emplace_back([&] {  // a host that looks, writes and comes and goes as a listener
    const auto guest = std::make_shared<Annotator>();
    for (int i = 0; i < kRounds; ++i) {
      arbiter.addAdditionalInformationListener(guest);
      for (const auto& [key, contents] : arbiter.mountedDictionaries())
        wrong = wrong || !(*contents->url(kDiskURLKey) == key);
      const auto table = arbiter.presentDiskDictionaries();
      if (const auto drive = table->firstMatching(std::nullopt, 104.0)) drive->set("host", i);
      arbiter.removeDiskWithUUIDFromTheList("nobody");
      arbiter.removeAdditionalInformationListener(guest);
    }
    --running;
  });
  while (running > 0) {
    mainQueue().drain();
    std::this_thread::yield();
  }
  for (auto& thread : threads) thread.join();
  mainQueue().drain();
  EXPECT_FALSE(wrong);
  EXPECT_EQ(announced, 2 * 3 * kRounds);
  EXPECT_TRUE(arbiter.mountedDictionaries().empty());
  EXPECT_EQ(arbiter.volumeURLsCurrentlyMounted()->count(), 0u);
}

TEST_F(Threads, OneVolumeAddedByManyThreadsIsRegisteredAndAnnouncedOnce) {
  for (int round = 0; round < 100; ++round) {
    std::vector<std::thread> threads;
    std::vector<KMVDiskArbiter::Drive> drives(4);
    for (auto& drive : drives)
      threads.emplace_back([&] { drive = arbiter.addDiskWithRepresentationToTheList(volume(1)); });
    for (auto& thread : threads) thread.join();
    for (const auto& drive : drives) EXPECT_EQ(drive, drives.front());
    arbiter.removeDiskAtURLFromTheList(*volume(1)->url("DAVolumePath"));
  }
  mainQueue().drain();
  EXPECT_EQ(announced, 200);
  EXPECT_FALSE(wrong);
}

}  // namespace
}  // namespace kmv
