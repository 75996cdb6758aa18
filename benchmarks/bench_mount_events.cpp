// SPDX-License-Identifier: MIT
// How long after mount(2) or umount(2) does an observer hear of it, with 10 and with 1,000 other mounts? The
// library's notification beside findmnt --poll, GLib's mount monitor and a plain re-read of the mount table,
// each in a process of its own, in turn, in one run. Needs root: it works in a mount namespace of its own,
// which ends with it.
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
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <vector>

#ifdef KMV_BENCH_GLIB
#  include <gio/gio.h>
#  include <gio/gunixmounts.h>
#endif

namespace {

constexpr int kRounds = 5;
constexpr int kEventsPerRound = 8;
constexpr int kPatienceInMilliseconds = 20'000;

using Nanoseconds = std::int64_t;

Nanoseconds now() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

[[noreturn]] void give_up(const char* what) {
  std::perror(what);
  std::exit(1);
}

/// Where a watcher reports: the time at which it heard of the place that comes and goes.
struct Report {
  int descriptor;
  void heard() const {
    const Nanoseconds time = now();
    if (::write(descriptor, &time, sizeof time) != sizeof time) std::_Exit(1);
  }
};

using Watcher = std::function<void(const std::string& place, const Report& report)>;

void watchWithLibrary(const std::string& place, const Report& report) {
  const auto tell = [&](const kmv::Notification& notification) {
    if (notification.object.dictionary()->url(kDiskURLKey)->path() == place) report.heard();
  };
  auto& center = kmv::NotificationCenter::defaultCenter();
  const auto added = center.addObserver(kDiskArbiterNewDiskDetectedNotification, tell);
  const auto removed = center.addObserver(kDiskArbiterRemovedDiskDetectedNotification, tell);
  KMVDiskArbiter::sharedInstance().startArbiter();
  KMVDiskArbiter::sharedInstance().arbiterQueue()->after(std::chrono::milliseconds(300),
                                                         [&] { report.heard(); });
  kmv::mainQueue().run();
}

std::string wholeFile(int file) {
  std::string text;
  char block[65536];
  ::lseek(file, 0, SEEK_SET);
  for (ssize_t got; (got = ::read(file, block, sizeof block)) > 0;)
    text.append(block, static_cast<std::size_t>(got));
  return text;
}

/// Mount points by line, as a hand-written watcher keeps them.
std::map<std::string, std::string> parsedTable(const std::string& text) {
  std::map<std::string, std::string> points;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = std::min(text.find('\n', start), text.size());
    std::size_t field = start;
    for (int i = 0; i < 4; ++i) field = text.find(' ', field) + 1;
    points.emplace(text.substr(start, end - start), text.substr(field, text.find(' ', field) - field));
    start = end + 1;
  }
  return points;
}

void watchByRereading(const std::string& place, const Report& report) {
  const int file = ::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC);
  auto known = parsedTable(wholeFile(file));
  report.heard();
  for (;;) {
    pollfd table{file, POLLPRI, 0};
    ::poll(&table, 1, -1);
    auto present = parsedTable(wholeFile(file));
    const auto differs = [&](const auto& one, const auto& other) {
      return std::any_of(one.begin(), one.end(), [&](const auto& line) {
        return line.second == place && other.count(line.first) == 0;
      });
    };
    if (differs(present, known) || differs(known, present)) report.heard();
    known = std::move(present);
  }
}

void watchWithFindmnt(const std::string& place, const Report& report) {
  FILE* lines = ::popen("exec findmnt --poll --noheadings --output TARGET", "r");
  if (lines == nullptr) std::_Exit(1);
  ::usleep(500'000);  // it has no way to say that it is ready
  report.heard();
  char line[4096];
  while (std::fgets(line, sizeof line, lines) != nullptr) {
    if (std::strncmp(line, place.c_str(), place.size()) == 0) report.heard();
  }
}

#ifdef KMV_BENCH_GLIB
struct GLibState {
  const std::string& place;
  const Report& report;
  bool mounted;
};

bool isMountedForGLib(const std::string& place) {
  bool found = false;
  GList* mounts = g_unix_mounts_get(nullptr);
  for (GList* one = mounts; one != nullptr; one = one->next) {
    found = found || place == g_unix_mount_get_mount_path(static_cast<GUnixMountEntry*>(one->data));
  }
  g_list_free_full(mounts, [](void* mount) { g_unix_mount_free(static_cast<GUnixMountEntry*>(mount)); });
  return found;
}

void watchWithGLib(const std::string& place, const Report& report) {
  GLibState state{place, report, isMountedForGLib(place)};
  GUnixMountMonitor* monitor = g_unix_mount_monitor_get();
  const auto changed = +[](GUnixMountMonitor*, gpointer data) {
    auto& it = *static_cast<GLibState*>(data);
    const bool mounted = isMountedForGLib(it.place);
    if (mounted != it.mounted) it.report.heard();
    it.mounted = mounted;
  };
  g_signal_connect(monitor, "mounts-changed", G_CALLBACK(changed), &state);
  report.heard();
  g_main_loop_run(g_main_loop_new(nullptr, FALSE));
}
#endif

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
  Nanoseconds next() const {
    pollfd report{reports_, POLLIN, 0};
    Nanoseconds time = 0;
    if (::poll(&report, 1, kPatienceInMilliseconds) != 1 ||
        ::read(reports_, &time, sizeof time) != sizeof time)
      return 0;
    return time;
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
  std::vector<Nanoseconds> mounted, unmounted;
  int missed = 0;
};

void measure(const Contestant& contestant, const std::string& place, Times& times) {
  for (int event = 0; event < kEventsPerRound; ++event) {
    Nanoseconds start = now();
    mountPlace(place);
    Nanoseconds heard = contestant.next();
    if (heard != 0) times.mounted.push_back(heard - start);
    times.missed += heard == 0;
    start = now();
    if (::umount2(place.c_str(), MNT_DETACH) != 0) give_up("umount2");
    heard = contestant.next();
    if (heard != 0) times.unmounted.push_back(heard - start);
    times.missed += heard == 0;
  }
}

double medianInMicroseconds(std::vector<Nanoseconds> times) {
  if (times.empty()) return -1;
  std::nth_element(times.begin(), times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2), times.end());
  return static_cast<double>(times[times.size() / 2]) / 1000;
}

}  // namespace

int main() {
  if (::unshare(CLONE_NEWNS) != 0) give_up("a mount namespace of its own (root is needed)");
  ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
  const std::string scratch = "/tmp";
  if (::mount("scratch", scratch.c_str(), "tmpfs", 0, nullptr) != 0) give_up("tmpfs");
  const std::string place = scratch + "/place";
  const std::string source = scratch + "/source";
  ::mkdir(place.c_str(), 0700);
  ::mkdir(source.c_str(), 0700);
  const std::vector<std::pair<const char*, Watcher>> ways{{"library", watchWithLibrary},
                                                          {"plain re-read, parse, diff", watchByRereading},
#ifdef KMV_BENCH_GLIB
                                                          {"GLib mount monitor", watchWithGLib},
#endif
                                                          {"findmnt --poll", watchWithFindmnt}};

  std::printf("%-28s %8s %16s %18s %7s\n", "microseconds to the observer", "mounts", "after mount(2)",
              "after umount(2)", "missed");
  int others = 0;
  for (const int wanted : {10, 1000}) {
    for (; others < wanted; ++others) {
      const std::string other = scratch + "/other" + std::to_string(others);
      ::mkdir(other.c_str(), 0700);
      if (::mount(source.c_str(), other.c_str(), nullptr, MS_BIND, nullptr) != 0) give_up("bind");
    }
    std::vector<Times> times(ways.size());
    for (int round = 0; round < kRounds; ++round) {
      for (std::size_t i = 0; i < ways.size(); ++i) {
        const std::size_t way = (i + static_cast<std::size_t>(round)) % ways.size();
        const Contestant contestant(ways[way].first, ways[way].second, place);
        measure(contestant, place, times[way]);
      }
    }
    for (std::size_t way = 0; way < ways.size(); ++way) {
      std::printf("%-28s %8d %16.1f %18.1f %7d\n", ways[way].first, wanted,
                  medianInMicroseconds(times[way].mounted), medianInMicroseconds(times[way].unmounted),
                  times[way].missed);
    }
  }
  return 0;
}
