// SPDX-License-Identifier: MIT
// Which drive holds this file? One look-up of a file three levels deep in one of 10, 1,000 and 10,000 drives,
// and two threads that look up at once. Beside the registry: the bare statx that any way needs, with the
// mount's id looked up in a hash; libmount's search of a table that is kept; GLib's g_unix_mount_for, which
// reads the table each time. All in one run, in turn, round by round. Needs root: it works in a mount
// namespace of its own, which ends with it.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <random>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#ifdef KMV_BENCH_GLIB
#  include <gio/gunixmounts.h>
#endif
#ifdef KMV_BENCH_LIBMOUNT
#  include <libmount/libmount.h>
#endif

namespace {

constexpr int kRounds = 7;
constexpr std::size_t kFiles = 2048;  // of as many drives, so that caches are as cold as a host's
constexpr std::chrono::milliseconds kTimeOfOneRound{40};
constexpr char kScratch[] = "/tmp";

[[noreturn]] void give_up(const char* what) {
  std::perror(what);
  std::exit(1);
}

std::string folder(const std::string& path) {
  ::mkdir(path.c_str(), 0755);
  return path;
}

/// Folders of one volume, each mounted on its own while the volume as a whole is not: each is a drive.
class Drives {
 public:
  explicit Drives(int count) {
    const std::string image = kScratch + std::string("/image"),
                      whole = folder(kScratch + std::string("/whole"));
    const std::string make = "truncate -s 512M " + image + " && mkfs.ext4 -q -N 200000 " + image +
                             " && mount -o loop " + image + " " + whole;
    if (std::system(make.c_str()) != 0) give_up("a volume");
    const std::string top = folder(kScratch + std::string("/drives"));
    std::mt19937 random(42);
    std::vector<std::string> points;
    for (int i = 0; i < count; ++i) {
      const std::string source = folder(whole + "/" + std::to_string(i));
      points.push_back(folder(top + "/drive" + std::to_string(i)));
      if (::mount(source.c_str(), points.back().c_str(), nullptr, MS_BIND, nullptr) != 0) give_up("bind");
    }
    for (std::size_t i = 0; i < kFiles; ++i) {
      const std::string& point = points[random() % points.size()];
      files_.push_back(folder(folder(folder(point + "/a") + "/b") + "/c") + "/file");
      std::ofstream(files_.back()) << "x";
    }
    if (::umount2(whole.c_str(), MNT_DETACH) != 0) give_up("umount2");
  }
  const std::string& file(std::size_t i) const { return files_[i % kFiles]; }

 private:
  std::vector<std::string> files_;
};

template <typename T>
void keep(const T& value) {
  asm volatile("" : : "r"(&value) : "memory");
}

std::uint64_t mountIdOf(const std::string& path) {
  struct statx status {};
  if (::statx(AT_FDCWD, path.c_str(), AT_STATX_DONT_SYNC, STATX_MNT_ID, &status) != 0) give_up("statx");
  return status.stx_mnt_id;
}

std::unordered_map<std::uint64_t, std::string> pointsById() {
  std::unordered_map<std::uint64_t, std::string> points;
  std::ifstream table("/proc/self/mountinfo");
  for (std::string line; std::getline(table, line);) {
    std::uint64_t id = 0;
    char point[4096];
    if (std::sscanf(line.c_str(), "%lu %*u %*s %*s %4095s", &id, point) == 2) points[id] = point;
  }
  return points;
}

using Lookup = std::function<void(std::size_t)>;
struct Way {
  const char* name;
  Lookup lookup;
  std::vector<double> nanoseconds = {};  // a look-up, by round
};

/// Nanoseconds a look-up in one thread.
double timeOf(const Lookup& lookup, std::size_t first) {
  using Clock = std::chrono::steady_clock;
  std::size_t count = 0;
  const auto start = Clock::now();
  for (std::size_t step = 1;; step = std::min<std::size_t>(step * 2, 256)) {
    for (std::size_t i = 0; i < step; ++i) lookup(first + count++);
    const auto passed = Clock::now() - start;
    if (passed >= kTimeOfOneRound)
      return std::chrono::duration<double, std::nano>(passed).count() / static_cast<double>(count);
  }
}

/// The same in each of so many threads at once: their mean.
double timeOf(const Lookup& lookup, int threads) {
  std::vector<double> times(static_cast<std::size_t>(threads));
  std::vector<std::thread> running;
  std::atomic<int> ready{0};
  for (std::size_t thread = 0; thread < times.size(); ++thread) {
    running.emplace_back([&, thread] {
      for (++ready; ready < threads;) {
      }
      times[thread] = timeOf(lookup, thread * 977);
    });
  }
  double sum = 0;
  for (auto& thread : running) thread.join();
  for (const double time : times) sum += time;
  return sum / threads;
}

double median(std::vector<double> values) {
  std::nth_element(values.begin(), values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2),
                   values.end());
  return values[values.size() / 2];
}

/// Each round asks every way, and begins with another one.
void compare(std::vector<Way> ways, int drives, int threads) {
  for (std::size_t round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < ways.size(); ++i) {
      Way& way = ways[(i + round) % ways.size()];
      way.nanoseconds.push_back(timeOf(way.lookup, threads));
    }
  }
  const double least = median(ways.front().nanoseconds);
  for (const Way& way : ways) {
    const double time = median(way.nanoseconds);
    std::printf("%-34s %8d %8d %14.0f %9.2fx\n", way.name, drives, threads, time, time / least);
  }
  std::fflush(stdout);
}

void measure(int count) {
  const Drives drives(count);
  KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
  arbiter.startArbiter();
  while (arbiter.presentDiskDictionaries()->count() < static_cast<std::size_t>(count)) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    kmv::mainQueue().drain();
  }
  std::vector<kmv::URL> urls;  // a host has URLs, the others have paths
  for (std::size_t i = 0; i < kFiles; ++i) urls.push_back(kmv::URL::fileURLWithPath(drives.file(i), false));
  const auto points = pointsById();
  for (std::size_t i = 0; i < kFiles; ++i) {
    const auto drive = arbiter.findRootDriveURLForPathURL(urls[i]);
    if (!drive || drive->path() != points.at(mountIdOf(drives.file(i)))) give_up("the ways differ");
  }
  std::vector<Way> ways{
      {"statx and a hash", [&](std::size_t i) { keep(points.find(mountIdOf(drives.file(i)))); }},
      {"findRootMountDictionaryForURL",
       [&](std::size_t i) { keep(arbiter.findRootMountDictionaryForURL(urls[i % kFiles])); }}};
  compare(ways, count, 2);
#ifdef KMV_BENCH_LIBMOUNT
  libmnt_table* const table = ::mnt_new_table();
  ::mnt_table_parse_file(table, "/proc/self/mountinfo");
  ways.push_back({"libmount, table kept", [&](std::size_t i) {
                    keep(::mnt_table_find_mountpoint(table, drives.file(i).c_str(), MNT_ITER_BACKWARD));
                  }});
#endif
#ifdef KMV_BENCH_GLIB
  ways.push_back({"GLib g_unix_mount_for", [&](std::size_t i) {
                    GUnixMountEntry* const mount = ::g_unix_mount_for(drives.file(i).c_str(), nullptr);
                    keep(mount);
                    if (mount != nullptr) ::g_unix_mount_free(mount);
                  }});
#endif
  compare(std::move(ways), count, 1);
}

/// The registry lives as long as a process, and so do its drives here.
void inChild(int count) {
  std::fflush(stdout);
  const pid_t child = ::fork();
  if (child < 0) give_up("fork");
  if (child == 0) {
    if (::unshare(CLONE_NEWNS) != 0) give_up("a mount namespace of its own (root is needed)");
    ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
    if (::mount("scratch", kScratch, "tmpfs", 0, nullptr) != 0) give_up("tmpfs");
    measure(count);
    std::fflush(stdout);
    std::_Exit(0);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  if (status != 0) std::exit(1);
}

}  // namespace

int main() {
  std::printf("%-34s %8s %8s %14s %10s\n", "look-up of a file", "drives", "threads", "ns in each",
              "of statx");
  for (const int count : {10, 1000, 10'000}) inChild(count);
  return 0;
}
