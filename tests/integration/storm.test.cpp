// SPDX-License-Identifier: MIT
// More mounts and device events than can be told one by one. What is told must make sense, and in the end the library
// must know what is there.
#include <sys/eventfd.h>

#include "integration/support/Child.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "platform/linux/LinuxPlatform.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

/// How often each process mounts or unmounts its device. KMV_STORM_OPERATIONS=50000 is the long form.
int operations() {
  const char* const set = std::getenv("KMV_STORM_OPERATIONS");
  return set == nullptr ? 200 : std::atoi(set);
}

/// Mounts the device at random places and unmounts it, as fast as it can.
bool mountAndUnmount(const std::string& device, const std::string& folder, unsigned seed) {
  std::mt19937 random(seed);
  std::string point;
  for (int i = operations() + static_cast<int>(seed) % 2; i > 0; --i) {
    if (!point.empty()) {
      unmount(std::exchange(point, ""));
    } else {
      point = folder + "/" + device + "-" + std::to_string(random() % 3);
      mountVolume("/dev/" + device, point, "ext4");
    }
  }
  return true;
}

TEST_F(VolumeStory, AStormOfMountsIsToldInAnOrderThatMakesSenseAndEndsInTheTruth) {
  const std::string image = makeImage(space().path("storm.img"), "ext4", "Storm");
  std::vector<LoopDevice> devices;
  std::vector<std::string> names;
  for (int i = 0; i < 4; ++i) {
    const std::string copy = space().path(std::to_string(i) + ".img");
    std::filesystem::copy_file(image, copy);  // even their UUIDs are equal
    devices.emplace_back(copy);
    names.push_back(devices.back().name());
    for (const char* place : {"-0", "-1", "-2"}) space().folder(names.back() + place);
  }
  Observer observer(space().scratch());
  std::vector<std::unique_ptr<Child>> children;
  for (unsigned i = 0; i < names.size(); ++i) {
    children.push_back(
        std::make_unique<Child>([&, i] { return mountAndUnmount(names[i], space().scratch(), i); }));
  }
  const auto isDone = [](const auto& child) { return child->isDone(); };
  while (!std::all_of(children.begin(), children.end(), isDone)) {
    observer.waitFor([&] { return std::all_of(children.begin(), children.end(), isDone); });
  }
  for (const auto& child : children) EXPECT_TRUE(child->holds());
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
