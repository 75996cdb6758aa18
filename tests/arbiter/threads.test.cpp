// SPDX-License-Identifier: MIT
// The registry on the real queues, used from many threads at once. Nothing listens to the machine here: the
// threads play the platform.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

namespace kmv {
namespace {

constexpr int kRounds = 400;

DictionarySnapshot volume(int number) {
  return std::make_shared<const Dictionary>(
      Dictionary{{"DAVolumePath", URL::fileURLWithPath("/media/" + std::to_string(number), true)},
                 {"DAVolumeMountable", true},
                 {"DAVolumeUUID", UUID(UUID::Bytes{1, static_cast<std::uint8_t>(number)})},
                 {"DAAppearanceTime", 100.0 + number}});
}

class Annotator : public KMVDiskAdditionalInformationProtocol {
  bool addInformationAboutDiskDictionary(const std::shared_ptr<DriveDictionary>& drive) override {
    drive->set("annotation", true);
    return true;
  }
};

TEST(Threads, AdditionsAndRemovalsOfADriveAlternateForEveryObserver) {
  KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  arbiter.setPresentDiskDictionaries(std::make_shared<PresentDriveTable>());
  std::map<std::string, int> balance;  // only on the main queue, which this thread drains
  std::atomic<bool> wrong{false};
  const auto added = NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterNewDiskDetectedNotification, [&](const Notification& n) {
        wrong = wrong || ++balance[n.object.dictionary()->url(kDiskURLKey)->path()] != 1 ||
                !n.object.drive()->value("annotation");
      });
  const auto removed = NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterRemovedDiskDetectedNotification, [&](const Notification& n) {
        wrong = wrong || --balance[n.object.dictionary()->url(kDiskURLKey)->path()] != 0;
      });
  arbiter.addAdditionalInformationListener(std::make_shared<Annotator>());

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
      if (const auto drive = arbiter.presentDiskDictionaries()->firstMatching(std::nullopt, 104.0))
        drive->set("host", i);
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
  while (mainQueue().drain() > 0) {
  }
  EXPECT_FALSE(wrong);
  EXPECT_TRUE(arbiter.mountedDictionaries().empty());
  EXPECT_EQ(arbiter.volumeURLsCurrentlyMounted()->count(), 0u);
  for (const auto& [path, count] : balance) EXPECT_EQ(count, 0) << path;
}

TEST(Threads, OneVolumeAddedByManyThreadsIsRegisteredAndAnnouncedOnce) {
  KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  arbiter.setPresentDiskDictionaries(std::make_shared<PresentDriveTable>());
  int announced = 0;
  const auto observer = NotificationCenter::defaultCenter().addObserver(
      kDiskArbiterNewDiskDetectedNotification, [&](const Notification&) { ++announced; });
  for (int round = 0; round < 100; ++round) {
    std::vector<std::thread> threads;
    std::vector<KMVDiskArbiter::Drive> drives(4);
    for (auto& drive : drives) {
      threads.emplace_back([&] { drive = arbiter.addDiskWithRepresentationToTheList(volume(1)); });
    }
    for (auto& thread : threads) thread.join();
    for (const auto& drive : drives) EXPECT_EQ(drive, drives.front());
    arbiter.removeDiskAtURLFromTheList(*volume(1)->url("DAVolumePath"));
  }
  while (mainQueue().drain() > 0) {
  }
  EXPECT_EQ(announced, 100);
}

}  // namespace
}  // namespace kmv
