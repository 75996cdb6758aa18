// SPDX-License-Identifier: MIT
// Where the kernel only says that the table changed: reading it again and comparing it, beside reading the file alone,
// after each of many mounts and unmounts, with 10, 1,000 and 10,000 other mounts. All in one run, in turn. Needs root:
// it works in a mount namespace of its own, which ends with it.
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/linux/mounts/MountInfoWatcher.h"

namespace {

constexpr int kEvents = 60;

[[noreturn]] void give_up(const char* what) {
  std::perror(what);
  std::exit(1);
}

void mountMemory(const std::string& point) {
  ::mkdir(point.c_str(), 0700);
  if (::mount("memory", point.c_str(), "tmpfs", 0, nullptr) != 0) give_up("mount");
}

template <typename Work>
double microsecondsOf(const Work& work) {
  const auto start = std::chrono::steady_clock::now();
  work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

void measure(const std::string& place, int others) {
  kmv::MountInfoFile file{kmv::LinuxOptions()};
  kmv::MountInfoWatcher watcher{kmv::LinuxOptions()};
  watcher.refresh(false);
  std::vector<double> alone, watched, ratios;
  for (int event = 0; event < kEvents; ++event) {
    event % 2 == 0 ? mountMemory(place) : static_cast<void>(::umount2(place.c_str(), MNT_DETACH));
    const auto readAlone = [&] { alone.push_back(microsecondsOf([&] { (void)file.read(); })); };
    const auto refresh = [&] {
      watched.push_back(microsecondsOf([&] {
        if (watcher.refresh(false)->size() != 1) give_up("the change was not seen");
      }));
    };
    if (event % 4 < 2) readAlone();  // neither is always the first
    refresh();
    if (event % 4 >= 2) readAlone();
    ratios.push_back(watched.back() / alone.back());
  }
  std::printf("%8d %16.1f %22.1f %9.2fx\n", others, median(alone), median(watched), median(ratios));
}

}  // namespace

int main() {
  if (::unshare(CLONE_NEWNS) != 0) give_up("a mount namespace of its own (root is needed)");
  ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  if (::mount("scratch", "/tmp", "tmpfs", 0, nullptr) != 0) give_up("tmpfs");
  std::printf("%8s %16s %22s %10s\n", "mounts", "read alone, us", "read and compared, us", "ratio");
  int others = 0;
  for (const int wanted : {10, 1000, 10'000}) {
    for (; others < wanted; ++others) mountMemory("/tmp/other" + std::to_string(others));
    measure("/tmp/place", wanted);
  }
  return 0;
}
