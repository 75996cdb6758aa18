// SPDX-License-Identifier: MIT
// What does one cycle of the activity monitor cost? On this machine beside what a user would run instead: one
// pread of /proc/diskstats on a kept descriptor, parsed by hand, which is the least that it takes; the usual
// stream and map; a listing of /sys/block; and, where they are installed, libudev, psutil and iostat. And on
// a simulated machine of 100, 1,000 and 10,000 drivers and as many volumes.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <KMVDriveLibrary/testing/SimulatedPlatform.h>
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#ifdef KMV_BENCH_UDEV
#  include <libudev.h>
#endif

namespace {

constexpr int kRounds = 7;

double microsecondsOf(const std::function<void()>& work, int times) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < times; ++i) work();
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count() / times;
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + kRounds / 2, values.end());
  return values[kRounds / 2];
}

template <typename T>
void keep(const T& value) {
  asm volatile("" : : "r"(&value) : "memory");
}

/// Sectors read and written of each line.
std::uint64_t parseByHand(std::string_view text) {
  std::uint64_t sum = 0;
  for (std::size_t at = 0; at < text.size();) {
    std::uint64_t fields[14] = {};
    for (int field = 0; field < 14; ++field) {
      while (at < text.size() && text[at] == ' ') ++at;
      for (; at < text.size() && text[at] != ' ' && text[at] != '\n'; ++at)
        fields[field] = fields[field] * 10 + static_cast<std::uint64_t>(text[at] - '0');
    }
    sum += fields[5] + fields[9];
    at = std::min(text.find('\n', at), text.size() - 1) + 1;
  }
  return sum;
}

void preadAndParse() {
  static const int file = ::open("/proc/diskstats", O_RDONLY | O_CLOEXEC);
  static std::string text(1 << 20, '\0');
  const ssize_t got = ::pread(file, text.data(), text.size(), 0);
  keep(parseByHand(std::string_view(text).substr(0, static_cast<std::size_t>(got))));
}

void streamIntoAMap() {
  std::map<std::string, std::pair<std::uint64_t, std::uint64_t>> disks;
  std::ifstream table("/proc/diskstats");
  for (std::string line; std::getline(table, line);) {
    std::istringstream fields(line);
    std::string number, name;
    std::uint64_t count[8];
    fields >> number >> number >> name;
    for (auto& one : count) fields >> one;
    disks[name] = {count[2], count[6]};
  }
  keep(disks);
}

void listAndReadEach() {
  std::uint64_t sum = 0;
  for (const auto& disk : std::filesystem::directory_iterator("/sys/block")) {
    std::ifstream file(disk.path() / "stat");
    std::uint64_t count[8];
    for (auto& one : count) file >> one;
    sum += count[2] + count[6];
  }
  keep(sum);
}

#ifdef KMV_BENCH_UDEV
void byUdev() {
  udev* const context = udev_new();
  udev_enumerate* const disks = udev_enumerate_new(context);
  udev_enumerate_add_match_subsystem(disks, "block");
  udev_enumerate_scan_devices(disks);
  std::uint64_t sum = 0;
  for (udev_list_entry* entry = udev_enumerate_get_list_entry(disks); entry != nullptr;
       entry = udev_list_entry_get_next(entry)) {
    udev_device* const disk = udev_device_new_from_syspath(context, udev_list_entry_get_name(entry));
    if (const char* counts = udev_device_get_sysattr_value(disk, "stat")) sum += std::strlen(counts);
    udev_device_unref(disk);
  }
  keep(sum);
  udev_enumerate_unref(disks);
  udev_unref(context);
}
#endif

/// Microseconds of one call of psutil, timed by itself; 0 where it is not installed.
double microsecondsOfPsutil() {
  FILE* const python = ::popen(
      "/usr/bin/python3 -c 'import psutil, time; f = psutil.disk_io_counters; f(perdisk=True); t = "
      "time.perf_counter(); "
      "[f(perdisk=True) for i in range(100)]; print((time.perf_counter() - t) * 1e4)' 2>/dev/null",
      "r");
  if (python == nullptr) return 0;
  double microseconds = 0;
  if (std::fscanf(python, "%lf", &microseconds) != 1) microseconds = 0;
  ::pclose(python);
  return microseconds;
}

bool isInstalled(const std::string& program) {
  return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
}

void onThisMachine() {
  KMVDiskArbiter::sharedInstance().startArbiter();
  KMVDriveActivityMonitor monitor;  // measures when it is told to
  struct Way {
    const char* name;
    std::function<void()> work;
    int times = 200;
  };
  std::vector<Way> ways{{"pread and parse by hand", preadAndParse},
                        {"a cycle of the monitor",
                         [&] {
                           monitor.refreshDriveStatistics();
                           monitor.refreshAppSuppliedIOStatistics();
                         }},
                        {"stream into a map", streamIntoAMap},
                        {"list /sys/block, read each", listAndReadEach}};
#ifdef KMV_BENCH_UDEV
  ways.push_back({"libudev, enumerate and read", byUdev, 5});
#endif
  if (isInstalled("iostat"))
    ways.push_back({"iostat (process)", [] { keep(std::system("iostat -d >/dev/null")); }, 5});
  std::vector<std::vector<double>> times(ways.size());
  std::vector<double> psutil;
  for (std::size_t round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < ways.size(); ++i) {
      const std::size_t way = (i + round) % ways.size();
      times[way].push_back(microsecondsOf(ways[way].work, ways[way].times));
    }
    psutil.push_back(microsecondsOfPsutil());
  }
  for (std::size_t way = 0; way < ways.size(); ++way)
    std::printf("%-32s %10.1f us %8.2fx\n", ways[way].name, median(times[way]),
                median(times[way]) / median(times[0]));
  if (median(psutil) > 0)
    std::printf("%-32s %10.1f us %8.2fx\n", "psutil.disk_io_counters", median(psutil),
                median(psutil) / median(times[0]));
}

void onASimulatedMachine(int drivers) {
  auto& machine = kmv::simulation::SimulatedPlatform::install();
  KMVDiskArbiter::sharedInstance().startArbiter();
  for (int i = 0; i < drivers; ++i) {
    const std::string name = "Card" + std::to_string(i), path = "/bus/" + std::to_string(i) + "/";
    const auto disk = machine.plugIn(
        {.name = name, .mountPoint = "/Volumes/" + name, .bsdName = "disk" + std::to_string(i)});
    machine.setMediaPath(disk, path + "media");
    machine.setBlockStorageDriver(path, kmv::DriverCounters{});
  }
  machine.runUntilIdle();
  KMVDriveActivityMonitor monitor;
  std::vector<double> times;
  std::uint64_t bytes = 0;
  for (int round = 0; round < kRounds; ++round) {
    ++bytes;
    for (int i = 0; i < drivers; ++i)
      machine.setBlockStorageDriver("/bus/" + std::to_string(i) + "/", kmv::DriverCounters{bytes, bytes});
    machine.advance(std::chrono::seconds(1));
    times.push_back(microsecondsOf([&] { monitor.refreshDriveStatistics(); }, 1));
  }
  std::printf("simulated, %6d drivers and volumes %10.1f us %8.2f us a drive\n", drivers, median(times),
              median(times) / drivers);
}

/// A process has one platform.
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

int main() {
  inChild(onThisMachine);
  for (const int drivers : {100, 1000, 10'000}) inChild([drivers] { onASimulatedMachine(drivers); });
  return 0;
}
