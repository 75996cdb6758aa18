// SPDX-License-Identifier: MIT
// More mounts and device events than can be told one by one. What is told must make sense, and in the end the library
// must know what is there.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include <memory>
#include <random>
#include <string>
#include <vector>

#include "integration/support/Child.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "platform/linux/LinuxPlatform.h"

namespace kmv::integration {
namespace {

/// Mounts the devices at random places and unmounts them, as fast as it can.
bool mountAndUnmount(const std::vector<std::string>& devices, const std::string& folder, unsigned seed) {
  constexpr int kOperations = 400;
  std::mt19937 random(seed);
  std::vector<std::string> points(devices.size());
  for (int i = 0; i < kOperations; ++i) {
    const std::size_t which = random() % devices.size();
    std::string& point = points[which];
    if (!point.empty()) {
      unmount(std::exchange(point, ""));
    } else {
      point = folder + "/" + devices[which] + "-" + std::to_string(random() % 3);
      mountVolume("/dev/" + devices[which], point, "ext4");
    }
  }
  return true;
}

TEST_F(VolumeStory, AStormOfMountsIsToldInAnOrderThatMakesSenseAndEndsInTheTruth) {
  const std::string image = makeImage(space().path("storm.img"), "ext4", "Storm");
  std::vector<LoopDevice> devices;
  std::vector<std::string> names;
  for (int i = 0; i < 4; ++i) {
    devices.emplace_back(
        copyImage(image, space().path(std::to_string(i) + ".img")));  // even their UUIDs are equal
    names.push_back(devices.back().name());
    for (const char* place : {"-0", "-1", "-2"}) space().folder(names.back() + place);
  }
  Observer observer(space().scratch());
  Child one([&] { return mountAndUnmount({names[0], names[1]}, space().scratch(), 1); });
  Child other([&] { return mountAndUnmount({names[2], names[3]}, space().scratch(), 2); });
  EXPECT_TRUE(observer.waitFor([&] { return one.isDone() && other.isDone(); }));
  EXPECT_TRUE(one.holds() && other.holds());
  observer.compareWithMountTable();
  observer.expectAlternation();
  EXPECT_FALSE(observer.all().empty()) << "nothing was seen of the storm";
  const auto present = observer.present();
  for (const std::string& name : names) {
    const bool isMounted = std::any_of(present.begin(), present.end(), [&](const std::string& point) {
      return point.starts_with(name + "-");
    });
    EXPECT_EQ(observer.unmounted(name, /*isWaitedFor=*/!isMounted) != nullptr, !isMounted) << name;
  }
}

TEST_F(VolumeStory, ADeviceWhoseRemovalWasLostAmongTooManyEventsIsForgotten) {
  LoopDevice card = newVolume("ext4", "Card");
  const LoopDevice noisy = newVolume("ext4", "Noisy");
  const int ready = eventfd(0, EFD_CLOEXEC);
  const pid_t listener = fork();
  if (listener == 0) {
    dup2(ready, STDIN_FILENO);
    close_range(STDERR_FILENO + 1, ~0U, 0);  // the device leaves only when nobody has it open
    LinuxOptions options;
    options.netlinkBufferBytes = 2304;  // the kernel's smallest
    Platform::install(std::make_unique<LinuxPlatform>(options));
    Observer observer(space().scratch());
    const bool appeared = observer.unmounted(card.name()) != nullptr;
    eventfd_write(STDIN_FILENO, 1);
    _exit(appeared && observer.isForgotten(card.name()) ? 0 : 1);
  }
  eventfd_t ignored = 0;
  eventfd_read(ready, &ignored);
  int status = 1;
  kill(listener, SIGSTOP);
  waitpid(listener, &status, WUNTRACED);
  const int events = open(("/sys/class/block/" + noisy.name() + "/uevent").c_str(), O_WRONLY | O_CLOEXEC);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(write(events, "change", 6), 6);
  close(events);
  card.detach();
  kill(listener, SIGCONT);
  waitpid(listener, &status, 0);
  EXPECT_EQ(status, 0);
}

}  // namespace
}  // namespace kmv::integration
