// SPDX-License-Identifier: MIT
// What does it cost to begin? The time and CPU of a first list with 10, 1,000 and 10,000 mounts, `kmvdrive list --json`
// beside findmnt, lsblk and df, in turn, as processes of their own in a mount namespace of the benchmark's (root is
// needed); and the memory that the library keeps for 10, 1,000 and 10,000 drives of a simulated machine.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>
#include <malloc.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr int kRounds = 5;

struct Cost {
  double wall = 0, processor = 0;  // milliseconds
};

double milliseconds(const timeval& time) {
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_usec) / 1e3;
}

void give_up(const char* what) {
  std::fprintf(stderr, "bench_start: %s failed\n", what);
  std::_Exit(1);
}

/// Of the process itself, its output dropped.
Cost costOf(const std::string& command) {
  const auto start = std::chrono::steady_clock::now();
  const pid_t child = ::fork();
  if (child == 0) {
    ::execl("/bin/sh", "sh", "-c", ("exec " + command + " >/dev/null").c_str(), nullptr);
    std::_Exit(127);
  }
  int status = 0;
  rusage usage{};
  ::wait4(child, &status, 0, &usage);
  if (status != 0) give_up(command.c_str());
  const std::chrono::duration<double, std::milli> wall = std::chrono::steady_clock::now() - start;
  return {wall.count(), milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime)};
}

Cost median(std::vector<Cost> costs) {
  Cost middle;
  for (double Cost::*part : {&Cost::wall, &Cost::processor}) {
    std::sort(costs.begin(), costs.end(), [part](const Cost& a, const Cost& b) { return a.*part < b.*part; });
    middle.*part = costs[costs.size() / 2].*part;
  }
  return middle;
}

void mountOthers(int from, int count) {
  for (int i = from; i < count; ++i) {
    const std::string place = "/tmp/" + std::to_string(i);
    ::mkdir(place.c_str(), 0700);
    if (::mount("/tmp/source", place.c_str(), nullptr, MS_BIND, nullptr) != 0) give_up("bind");
  }
}

void firstLists(const std::vector<int>& sizes) {
  if (::unshare(CLONE_NEWNS) != 0) give_up("a mount namespace of its own (root is needed)");
  ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  if (::mount("scratch", "/tmp", "tmpfs", 0, nullptr) != 0) give_up("tmpfs");
  ::mkdir("/tmp/source", 0700);
  const std::vector<std::string> ways{KMV_BENCH_KMVDRIVE " list --json", "findmnt -J", "lsblk -J", "df"};
  int others = 0;
  for (const int size : sizes) {
    mountOthers(others, size);
    others = size;
    std::vector<std::vector<Cost>> costs(ways.size());
    for (std::size_t turn = 0; turn < kRounds * ways.size(); ++turn)
      costs[turn % ways.size()].push_back(costOf(ways[turn % ways.size()]));
    for (std::size_t way = 0; way < ways.size(); ++way) {
      const Cost cost = median(costs[way]);
      const std::string name = way == 0 ? "kmvdrive list --json" : ways[way];
      std::printf("%-24s %6d mounts %10.1f ms %10.1f ms CPU\n", name.c_str(), size, cost.wall,
                  cost.processor);
    }
  }
}

std::size_t memoryInUse() {
  const struct mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

void memoryOf(int drives) {
  auto& machine = kmv::simulation::SimulatedPlatform::install();
  for (int i = 0; i < drives; ++i)
    machine.plugIn({.name = "Card " + std::to_string(i), .bsdName = "disk" + std::to_string(i)});
  const std::size_t before = memoryInUse();
  KMVDiskArbiter::sharedInstance().startArbiter();
  machine.runUntilIdle();
  const std::size_t kept = memoryInUse() - before;
  std::printf("memory of %6d drives %10zu bytes %8zu bytes a drive\n", drives, kept,
              kept / static_cast<std::size_t>(drives));
}

/// A process has one platform and one mount namespace.
void inChild(const std::function<void()>& work) {
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child == 0) {
    work();
    std::fflush(stdout);
    std::_Exit(0);
  }
  int status = 1;
  ::waitpid(child, &status, 0);
  if (status != 0) std::exit(1);
}

}  // namespace

int main(int argc, char**) {
  const bool isQuick = argc > 1;  // --benchmark_min_time: only that it runs
  inChild([isQuick] { firstLists(isQuick ? std::vector{10} : std::vector{10, 1000, 10'000}); });
  for (const int drives : {10, 1000, 10'000}) inChild([drives] { memoryOf(drives); });
  return 0;
}
