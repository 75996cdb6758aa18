// SPDX-License-Identifier: MIT
#pragma once

// Ways of watching the mount table, each of which runs in a process of its own until that is killed.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <utility>

#ifdef KMV_BENCH_GLIB
#  include <gio/gio.h>
#  include <gio/gunixmounts.h>
#endif
#ifdef KMV_BENCH_LIBMOUNT
#  include <libmount/libmount.h>
#endif

namespace kmv::bench {

using Nanoseconds = std::int64_t;

inline Nanoseconds now() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

[[noreturn]] inline void give_up(const char* what) {
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

/// The least that any way costs: to wake up.
inline void wakeOnly(const std::string&, const Report& report) {
  pollfd table{::open("/proc/self/mountinfo", O_RDONLY | O_CLOEXEC), POLLPRI, 0};
  ::poll(&table, 1, 0);
  for (;; ::poll(&table, 1, -1)) report.heard();
}

inline void watchWithLibrary(const std::string& place, const Report& report) {
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

inline std::string wholeFile(int file) {
  std::string text;
  char block[65536];
  ::lseek(file, 0, SEEK_SET);
  for (ssize_t got; (got = ::read(file, block, sizeof block)) > 0;)
    text.append(block, static_cast<std::size_t>(got));
  return text;
}

/// Mount points by line, as a hand-written watcher keeps them.
inline std::map<std::string, std::string> parsedTable(const std::string& text) {
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

inline void watchByRereading(const std::string& place, const Report& report) {
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

inline void watchWithFindmnt(const std::string& place, const Report& report) {
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

inline bool isMountedForGLib(const std::string& place) {
  bool found = false;
  GList* mounts = g_unix_mounts_get(nullptr);
  for (GList* one = mounts; one != nullptr; one = one->next) {
    found = found || place == g_unix_mount_get_mount_path(static_cast<GUnixMountEntry*>(one->data));
  }
  g_list_free_full(mounts, [](void* mount) { g_unix_mount_free(static_cast<GUnixMountEntry*>(mount)); });
  return found;
}

inline void watchWithGLib(const std::string& place, const Report& report) {
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

#ifdef KMV_BENCH_LIBMOUNT
inline bool differsForLibmount(libmnt_table* known, libmnt_table* present, const std::string& place) {
  libmnt_tabdiff* const difference = ::mnt_new_tabdiff();
  libmnt_iter* const each = ::mnt_new_iter(MNT_ITER_FORWARD);
  ::mnt_diff_tables(difference, known, present);
  libmnt_fs *before = nullptr, *after = nullptr;
  bool differs = false;
  for (int change = 0; ::mnt_tabdiff_next_change(difference, each, &before, &after, &change) == 0;)
    differs = differs || place == ::mnt_fs_get_target(after != nullptr ? after : before);
  ::mnt_free_iter(each);
  ::mnt_free_tabdiff(difference);
  return differs;
}

inline void watchWithLibmount(const std::string& place, const Report& report) {
  libmnt_monitor* const monitor = ::mnt_new_monitor();
  ::mnt_monitor_enable_kernel(monitor, 1);
  libmnt_table* known = ::mnt_new_table_from_file("/proc/self/mountinfo");
  report.heard();
  while (::mnt_monitor_wait(monitor, -1) > 0) {
    ::mnt_monitor_event_cleanup(monitor);
    libmnt_table* const present = ::mnt_new_table_from_file("/proc/self/mountinfo");
    if (differsForLibmount(known, present, place)) report.heard();
    ::mnt_unref_table(std::exchange(known, present));
  }
}
#endif

}  // namespace kmv::bench
