// SPDX-License-Identifier: MIT
// What does a mount event cost, with 10, 1,000 and 10,000 other mounts: time until an observer hears of it, CPU of the
// watching process, how many of a burst are told, and how much longer mount(2) and umount(2) take for whoever calls
// them. The library's notification beside the bare wake that any way needs, findmnt --poll, libmount's monitor and
// difference, GLib's mount monitor and a plain re-read of the table, each in a process of its own, in turn, in one run.
// Needs root: it works in a mount namespace of its own, which ends with it. A number as its argument is the only
// number of mounts. With `--benchmark_min_time` it only checks, quickly, that the library told each mount of a burst
// where the kernel names them, and fails if not.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "MountWatchers.h"

namespace {

using namespace kmv::bench;

constexpr int kRounds = 5;
constexpr int kEventsPerRound = 8;
constexpr int kWarmUps = 3;  // the first events after a start are slower
constexpr int kBurst = 300;  // mounts, and as many unmounts
constexpr int kPatienceInMilliseconds = 5'000;
constexpr int kQuietInMilliseconds = 1'000;  // nothing more comes of a burst

/// A running watcher and the pipe on which it reports.
class Contestant {
 public:
  Contestant(std::string title, const Watcher& watcher, const std::string& place) : title_(std::move(title)) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) give_up("pipe2");
    process_ = ::fork();
    if (process_ == 0) {
      ::prctl(PR_SET_PDEATHSIG, SIGKILL);
      ::setpgid(0, 0);
      watcher(place, Report{ends[1]});
      std::_Exit(0);
    }
    ::close(ends[1]);
    reports_ = ends[0];
    if (next() == 0) std::fprintf(stderr, "%s did not start\n", title_.c_str());
  }
  ~Contestant() {
    ::kill(-process_, SIGKILL);
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    ::close(reports_);
  }

  /// The time of its next report; 0 when none comes.
  Nanoseconds next(int patience = kPatienceInMilliseconds) const {
    pollfd report{reports_, POLLIN, 0};
    Nanoseconds time = 0;
    if (::poll(&report, 1, patience) != 1 || ::read(reports_, &time, sizeof time) != sizeof time) return 0;
    return time;
  }
  Nanoseconds processorTime() const {
    clockid_t clock{};
    timespec time{};
    if (::clock_getcpuclockid(process_, &clock) != 0 || ::clock_gettime(clock, &time) != 0) return 0;
    return time.tv_sec * Nanoseconds{1'000'000'000} + time.tv_nsec;
  }

 private:
  std::string title_;
  pid_t process_ = -1;
  int reports_ = -1;
};

/// A volume that costs nothing to mount: a FUSE connection that nobody answers and nobody asks.
void mountPlace(const std::string& place) {
  const int connection = ::open("/dev/fuse", O_RDWR | O_CLOEXEC);
  if (connection < 0) give_up("/dev/fuse");
  const std::string options = "fd=" + std::to_string(connection) + ",rootmode=40000,user_id=0,group_id=0";
  if (::mount("bench", place.c_str(), "fuse.kmvbench", 0, options.c_str()) != 0) give_up("mount");
  ::close(connection);
}

struct Times {
  std::vector<Nanoseconds> mounted, unmounted;  // until the observer heard
  std::vector<Nanoseconds> calls;               // of mount(2) and umount(2) together
  std::vector<Nanoseconds> processor;           // of the watcher, an event, by round
  int missed = 0, toldOfBurst = 0;
};

void unmountPlace(const std::string& place) {
  if (::umount2(place.c_str(), MNT_DETACH) != 0) give_up("umount2");
}

void note(Nanoseconds heard, Nanoseconds start, std::vector<Nanoseconds>& times, int& missed) {
  if (heard != 0) times.push_back(heard - start);
  missed += heard == 0;
}

void measureEvents(const Contestant& contestant, const std::string& place, int events, Times& times) {
  const Nanoseconds before = contestant.processorTime();
  for (int event = 0; event < events; ++event) {
    const Nanoseconds start = now();
    mountPlace(place);
    const Nanoseconds mounted = now();
    note(contestant.next(), start, times.mounted, times.missed);
    const Nanoseconds startOfUnmount = now();
    unmountPlace(place);
    times.calls.push_back(mounted - start + now() - startOfUnmount);
    note(contestant.next(), startOfUnmount, times.unmounted, times.missed);
  }
  ::usleep(5'000);  // what it does after it has told
  times.processor.push_back((contestant.processorTime() - before) / (2 * events));
}

/// How many of a burst without a pause were told.
int toldOfBurst(const Contestant& contestant, const std::string& place) {
  for (int i = 0; i < kBurst; ++i) {
    mountPlace(place);
    unmountPlace(place);
  }
  int told = 0;
  while (contestant.next(kQuietInMilliseconds) != 0) ++told;
  return told;
}

void measure(const Contestant& contestant, const std::string& place, bool isLast, Times& times) {
  Times ignored;
  measureEvents(contestant, place, kWarmUps, ignored);
  measureEvents(contestant, place, kEventsPerRound, times);
  if (isLast) times.toldOfBurst = toldOfBurst(contestant, place);
}

/// What the calls take while nobody watches.
void measureCallsAlone(const std::string& place, Times& times) {
  for (int event = 0; event < kEventsPerRound; ++event) {
    const Nanoseconds start = now();
    mountPlace(place);
    unmountPlace(place);
    times.calls.push_back(now() - start);
    ::usleep(1'000);
  }
}

double medianInMicroseconds(std::vector<Nanoseconds> times) {
  if (times.empty()) return -1;
  std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2), times.end());
  return static_cast<double>(times[times.size() / 2]) / 1000;
}

struct Way {
  const char* name;
  Watcher watcher;
  bool isSquare = false;        // its cost grows with the square of the mounts: seconds an event at 10,000
  bool isOtherProgram = false;  // whose CPU is not counted here
};

std::vector<Way> allWays() {
  return {{"bare wake", wakeOnly},
          {"library", watchWithLibrary},
          {"plain re-read, parse, diff", watchByRereading},
#ifdef KMV_BENCH_GLIB
          {"GLib mount monitor", watchWithGLib},
#endif
#ifdef KMV_BENCH_LIBMOUNT
          {"libmount monitor and diff", watchWithLibmount, true},
#endif
          {"findmnt --poll", watchWithFindmnt, true, true}};
}

void compare(const std::vector<Way>& ways, const std::string& place, int others) {
  std::vector<Times> times(ways.size());
  Times alone;
  for (int round = 0; round < kRounds; ++round) {
    measureCallsAlone(place, alone);
    for (std::size_t i = 0; i < ways.size(); ++i) {
      const std::size_t way = (i + static_cast<std::size_t>(round)) % ways.size();
      if (ways[way].isSquare && others > 1000) continue;
      const Contestant contestant(ways[way].name, ways[way].watcher, place);
      measure(contestant, place, round == kRounds - 1, times[way]);
    }
  }
  const double callsAlone = medianInMicroseconds(alone.calls),
               least = medianInMicroseconds(times[0].processor);
  for (std::size_t way = 0; way < ways.size(); ++way) {
    const Times& its = times[way];
    if (its.processor.empty()) continue;
    const double processor = medianInMicroseconds(its.processor);
    std::printf("%-28s %6d %10.1f %10.1f ", ways[way].name, others, medianInMicroseconds(its.mounted),
                medianInMicroseconds(its.unmounted));
    if (ways[way].isOtherProgram) {
      std::printf("%10s %9s", "-", "-");
    } else {
      std::printf("%10.1f %8.1fx", processor, processor / least);
    }
    std::printf(" %8.2fx %6d %4d/%d\n", medianInMicroseconds(its.calls) / callsAlone, its.missed,
                its.toldOfBurst, 2 * kBurst);
  }
  std::fflush(stdout);
}

/// Counts what the library tells while another process does `work`, until nothing more comes.
int toldWhile(const std::atomic<int>& told, const std::function<void()>& work) {
  const int before = told;
  const pid_t worker = ::fork();
  if (worker == 0) {
    work();
    std::_Exit(0);
  }
  ::waitpid(worker, nullptr, 0);
  for (int last = -1; last != told;) {
    last = told;
    for (int i = 0; i < kQuietInMilliseconds; ++i) {
      kmv::mainQueue().drain();
      ::usleep(1'000);
    }
  }
  return told - before;
}

/// Only what does not depend on the machine's speed: each of many drives that come and then go is told; and a drive
/// that comes and goes at once is told or, where it was gone before it could be described, counted as missed.
int checkCounts(const std::string& place) {
  std::atomic<int> told{0};
  const auto count = [&](const kmv::Notification&) { ++told; };
  auto& center = kmv::NotificationCenter::defaultCenter();
  const auto added = center.addObserver(kDiskArbiterNewDiskDetectedNotification, count);
  const auto removed = center.addObserver(kDiskArbiterRemovedDiskDetectedNotification, count);
  KMVDiskArbiter::sharedInstance().startArbiter();
  const auto pointOf = [&](int i) { return place + std::to_string(i); };
  for (int i = 0; i < kBurst; ++i) ::mkdir(pointOf(i).c_str(), 0700);
  toldWhile(told, [] {});
  const int ofMany = toldWhile(told, [&] {
    for (int i = 0; i < kBurst; ++i) mountPlace(pointOf(i));
    for (int i = 0; i < kBurst; ++i) unmountPlace(pointOf(i));
  });
  const auto missedBefore = kmv::mountEvents().missed;
  const int ofOne = toldWhile(told, [&] {
    for (int i = 0; i < kBurst; ++i) {
      mountPlace(place);
      unmountPlace(place);
    }
  });
  const kmv::MountEvents events = kmv::mountEvents();
  const int missed = static_cast<int>(events.missed - missedBefore);
  std::printf(
      "%s: of %d drives that came and then went told %d of %d; of one that came and went as often told %d, "
      "missed %d\n",
      events.watcher.c_str(), kBurst, ofMany, 2 * kBurst, ofOne, missed);
  std::fflush(stdout);
  const bool isRight = ofMany == 2 * kBurst && ofOne + 2 * missed == 2 * kBurst;
  std::_Exit(events.watcher == "fanotify" && !isRight ? 1 : 0);
}

}  // namespace

int main(int argc, char** argv) {
  if (::unshare(CLONE_NEWNS) != 0) give_up("a mount namespace of its own (root is needed)");
  ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  const std::string scratch = "/tmp";
  if (::mount("scratch", scratch.c_str(), "tmpfs", 0, nullptr) != 0) give_up("tmpfs");
  const std::string place = scratch + "/place", source = scratch + "/source";
  ::mkdir(place.c_str(), 0700);
  ::mkdir(source.c_str(), 0700);
  if (argc > 1 && std::string_view(argv[1]).starts_with("--benchmark_min_time")) return checkCounts(place);
  std::printf("%-28s %6s %10s %10s %10s %9s %9s %6s %8s\n", "microseconds (medians)", "mounts", "to mount",
              "to unmount", "CPU/event", "of wake", "callers", "missed", "burst");
  std::vector<int> sizes{10, 1000, 10'000};
  if (argc > 1) sizes = {std::atoi(argv[1])};
  int others = 0;
  for (const int wanted : sizes) {
    for (; others < wanted; ++others) {
      const std::string other = scratch + "/other" + std::to_string(others);
      ::mkdir(other.c_str(), 0700);
      if (::mount(source.c_str(), other.c_str(), nullptr, MS_BIND, nullptr) != 0) give_up("bind");
    }
    compare(allWays(), place, wanted);
  }
  return 0;
}
