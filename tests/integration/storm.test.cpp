// SPDX-License-Identifier: MIT
// Thousands of mounts and unmounts from four processes at once. However much of it the library sees, what it
// tells must make sense, and in the end it must know what is there.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "platform/linux/LinuxPlatform.h"

namespace kmv::integration {
namespace {

constexpr int kDevices = 8;
constexpr int kIdleDevices = 6;
constexpr int kProcesses = 4;
constexpr int kOperations = 2000;
constexpr int kPlaces = 3;
/// Announcements that show that the storm reached the library; a busy machine sees few of them.
constexpr std::size_t kSeen = 4;

/// How many messages the kernel dropped for want of room in this process's sockets for device events.
long droppedDeviceEvents() {
  std::set<std::string> ours;
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    std::error_code gone;
    const std::string target = std::filesystem::read_symlink(entry.path(), gone).string();
    if (target.starts_with("socket:[")) ours.insert(target.substr(8, target.size() - 9));
  }
  constexpr int kDeviceEvents = 15;  // NETLINK_KOBJECT_UEVENT
  long dropped = 0;
  std::ifstream table("/proc/net/netlink");
  std::string line;
  std::getline(table, line);
  while (std::getline(table, line)) {
    std::istringstream fields(line);
    std::string socket, groups, port, received, sent, dump, locks, inode;
    int protocol = 0;
    long drops = 0;
    fields >> socket >> protocol >> port >> groups >> received >> sent >> dump >> locks >> drops >> inode;
    if (protocol == kDeviceEvents && ours.contains(inode)) dropped += drops;
  }
  return dropped;
}

/// While it lives the library's event thread may run on one processor only, and there only when nobody else
/// wants to.
class StarvedListener {
 public:
  explicit StarvedListener(bool starves) {
    if (!starves) return;
    sched_getaffinity(0, sizeof all_, &all_);
    CPU_ZERO(&one_);
    for (std::size_t i = 0; i < CPU_SETSIZE && CPU_COUNT(&one_) == 0; ++i) {
      if (CPU_ISSET(i, &all_)) CPU_SET(i, &one_);
    }
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
      std::string name;  // threads that it has just started still have it too; the oldest is the one
      std::getline(std::ifstream(task.path() / "comm"), name);
      if (name == "kmv-events" && listener_ == 0) listener_ = std::stoi(task.path().filename().string());
    }
    EXPECT_NE(listener_, 0);
    schedule(SCHED_IDLE, one_);
  }
  ~StarvedListener() { schedule(SCHED_OTHER, all_); }
  StarvedListener(const StarvedListener&) = delete;
  StarvedListener& operator=(const StarvedListener&) = delete;

  /// Lets the calling thread take the listener's processor.
  void share() const {
    if (listener_ != 0) sched_setaffinity(0, sizeof one_, &one_);
  }

 private:
  void schedule(int policy, const cpu_set_t& processors) const {
    const sched_param priority{};
    if (listener_ == 0) return;
    EXPECT_EQ(sched_setscheduler(listener_, policy, &priority), 0);
    EXPECT_EQ(sched_setaffinity(listener_, sizeof processors, &processors), 0);
  }

  pid_t listener_ = 0;
  cpu_set_t all_, one_;
};

class Storm : public VolumeStory {
 protected:
  /// Lets the storm blow over the shared registry; `eventsPerOperation` device events go with each mount or
  /// unmount.
  void blow(int eventsPerOperation) {
    std::vector<LoopDevice> devices = attachDevices();
    const LoopDevice steady(copyImage(image_, space().path("steady.img")));
    mountVolume(steady.node(), space().folder("steady"), "ext4");
    Observer observer(space().scratch());
    observer.expect({"added steady"});
    std::vector<LoopDevice> idle;  // to be pulled out in the middle of it
    for (int i = 0; i < kIdleDevices; ++i) {
      idle.emplace_back(copyImage(image_, space().path("idle" + std::to_string(i) + ".img")));
      ASSERT_NE(observer.unmounted(idle.back().name()), nullptr);
    }

    std::vector<std::unique_ptr<Process>> storms;
    for (int i = 0; i < kProcesses; ++i) {
      storms.push_back(std::make_unique<Process>(
          Process::Words{KMV_MOUNT_STORM, std::to_string(i + 1), std::to_string(kOperations / kProcesses),
                         std::to_string(eventsPerOperation), space().scratch(),
                         devices[static_cast<std::size_t>(2 * i)].name(),
                         devices[static_cast<std::size_t>(2 * i + 1)].name()}));
    }
    EXPECT_TRUE(observer.waitFor([&] { return observer.all().size() > kSeen; }));
    pullOut(idle, eventsPerOperation > 0 ? steady.name() : "");
    for (const auto& storm : storms) {
      std::optional<int> code;
      const auto ended = [&] { return (code = storm->exitCodeNow()).has_value(); };
      while (!observer.waitFor(ended)) {
      }
      EXPECT_EQ(code, 0);
    }
    observer.compareWithMountTable();
    expectEachOnce(observer, devices);
    for (const LoopDevice& device : idle) EXPECT_TRUE(observer.isForgotten(device.name())) << device.name();
    expectAlternation(observer.all());
  }

 private:
  std::vector<LoopDevice> attachDevices() {
    image_ = makeImage(space().path("storm.img"), "ext4", "Storm");
    std::vector<LoopDevice> devices;
    for (int i = 0; i < kDevices; ++i) {
      // Copies: even their UUIDs are equal.
      devices.emplace_back(copyImage(image_, space().path(std::to_string(i) + ".img")));
      for (int place = 0; place < kPlaces; ++place) {
        space().folder(devices.back().name() + "-" + std::to_string(place));
      }
    }
    return devices;
  }

  /// Detaches the devices while, where it is asked for, events of `noisy` leave no room for theirs.
  static void pullOut(std::vector<LoopDevice>& devices, const std::string& noisy) {
    std::atomic<bool> done{noisy.empty()};
    const StarvedListener starved(!done);
    std::thread noise([&] {
      starved.share();
      const int file = open(("/sys/class/block/" + noisy + "/uevent").c_str(), O_WRONLY | O_CLOEXEC);
      while (!done && write(file, "change", 6) == 6) {
      }
      close(file);
    });
    for (LoopDevice& device : devices) device.detach();
    done = true;
    noise.join();
  }

  /// Every device is one drive or one unmounted disk.
  void expectEachOnce(Observer& observer, const std::vector<LoopDevice>& devices) {
    const auto count = [&] {
      std::map<std::string, int> found;
      for (const auto& [url, drive] : observer.arbiter().mountedDictionaries())
        ++found[*drive->text("DAMediaBSDName")];
      for (const auto& disk : observer.arbiter().unmountedDictionaries())
        ++found[*disk->text("DAMediaBSDName")];
      return found;
    };
    const auto eachOnce = [&] {
      auto found = count();
      return std::all_of(devices.begin(), devices.end(),
                         [&](const auto& device) { return found[device.name()] == 1; });
    };
    EXPECT_TRUE(observer.waitFor(eachOnce));
    auto found = count();
    for (const LoopDevice& device : devices) EXPECT_EQ(found[device.name()], 1) << device.name();
  }

  static void expectAlternation(const Observer::Lines& lines) {
    std::map<std::string, bool> isThere;
    int wrong = 0;
    for (const std::string& line : lines) {
      const std::size_t blank = line.find(' ');
      const std::string word = line.substr(0, blank), name = line.substr(blank + 1);
      wrong += (word == "added") == isThere[name] || word == "changed" ? 1 : 0;
      isThere[name] = word == "added";
    }
    EXPECT_EQ(wrong, 0);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "removed steady"), 0);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "added steady"), 1);
    EXPECT_GT(lines.size(), kSeen) << "nothing was seen of the storm";
  }

  std::string image_;
};

TEST_F(Storm, OfMountsIsToldInAnOrderThatMakesSense) {
  blow(/*eventsPerOperation=*/0);
}

TEST_F(Storm, OfMoreDeviceEventsThanFitIsToldInAnOrderThatMakesSense) {
  LinuxOptions options;
  options.netlinkBufferBytes = 2304;  // the kernel's smallest
  ASSERT_TRUE(Platform::install(std::make_unique<LinuxPlatform>(options)));
  blow(/*eventsPerOperation=*/10);
  EXPECT_GT(droppedDeviceEvents(), 0) << "the buffer never overflowed, so this shows nothing";
}

}  // namespace
}  // namespace kmv::integration
