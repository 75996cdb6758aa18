// SPDX-License-Identifier: MIT
// Mounts and unmounts volumes as fast as it can: kmv_mount_storm SEED OPERATIONS EVENTS FOLDER LOOP...
// Each operation takes one of the loop devices ("loop3") at random: unmounts it, or mounts it at
// FOLDER/LOOP-0, -1 or -2. After each, the kernel is made to tell EVENTS times that the device changed. Exit
// status 1 when anything fails.
#include <fcntl.h>
#include <sys/mount.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>
#include <vector>

namespace {

struct Device {
  std::string name;
  std::string point;  // empty while it is not mounted
};

bool changeMounts(Device& device, const std::string& folder, unsigned place) {
  if (!device.point.empty()) {
    const bool done = umount2(device.point.c_str(), UMOUNT_NOFOLLOW) == 0;
    device.point.clear();
    return done;
  }
  device.point = folder + "/" + device.name + "-" + std::to_string(place);
  return mount(("/dev/" + device.name).c_str(), device.point.c_str(), "ext4", 0, nullptr) == 0;
}

bool makeEvents(const Device& device, int count) {
  if (count == 0) return true;
  const int file = open(("/sys/class/block/" + device.name + "/uevent").c_str(), O_WRONLY | O_CLOEXEC);
  bool done = file >= 0;
  for (int i = 0; i < count && done; ++i) done = write(file, "change", 6) == 6;
  close(file);
  return done;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 6) return 2;
  std::mt19937 random(static_cast<unsigned>(std::atoi(argv[1])));
  const int operations = std::atoi(argv[2]);
  const int events = std::atoi(argv[3]);
  std::vector<Device> devices;
  for (int i = 5; i < argc; ++i) devices.push_back({argv[i], {}});
  for (int i = 0; i < operations; ++i) {
    Device& device = devices[random() % devices.size()];
    if (!changeMounts(device, argv[4], static_cast<unsigned>(random() % 3)) || !makeEvents(device, events)) {
      std::perror(device.name.c_str());
      return 1;
    }
  }
  return 0;
}
