// SPDX-License-Identifier: MIT
// kmvdrive on a machine in trouble, and what it costs: what it asks of the kernel, and that it sleeps with nothing to tell.
#include "integration/support/ToolStory.h"
#include "support/Sanitizers.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

using ::testing::_;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::Pair;
using ::testing::StartsWith;

TEST_F(ToolStory, TheFirstSignalEndsWhatWaitsForADeadServer) {
  const std::string file = space().folder("fuse") + "/file";
  FuseServer server(space().path("fuse"));
  server.stop();
  const Process::Words waiting[] = {
      {"where", file}, {"unmount", file}, {"rename", file, "Reel"}, {"attr", "set", file, "startblock", "1"}};
  for (const auto& arguments : waiting) {
    for (const int number : {SIGINT, SIGTERM}) {
      Process program(kmvdrive(arguments));
      ASSERT_TRUE(program.waitUntilItHandles(number));
      program.signal(number);
      EXPECT_EQ(program.exitCode(), -number) << arguments.front();
    }
  }
}

#ifndef KMV_LEAK_SANITIZER

TEST_F(ToolStory, WhatCannotBeReadIsSaidInsteadOfNothing) {
  mountCard();
  bindMount(space().folder("empty"), "/proc");
  for (const Process::Words& arguments :
       {Process::Words{"list"}, {"tree"}, {"watch", "--for", "0"}, {"where", "/"}}) {
    const std::string told = said(arguments);
    EXPECT_THAT(told, StartsWith("5 "));
    EXPECT_THAT(told, HasSubstr("kmvdrive: degraded: mount table unreadable; "));
    EXPECT_THAT(told, Not(HasSubstr("No d")));
  }
  const Ran listing = run(kmvdrive({"list", "--json"}), {}, Process::Errors::kept);
  EXPECT_EQ(json::parse(listing.output)["degraded"], json::array({"mount table unreadable"}));
  unmount("/proc");
  const Ran whole = run(kmvdrive({"list", "--json"}));
  EXPECT_EQ(whole.exitCode, 0);
  EXPECT_FALSE(json::parse(whole.output).contains("degraded"));
}

#endif

/// A traced command: every system call that takes a path, or a descriptor that may stand for one, with
/// descriptors written as paths. Calls that move data are left out: the mount table itself holds the names of
/// all mount points.
Process::Words traced(const std::string& trace, Process::Words command) {
  Process::Words words{"strace", "-D", "-f",  "-y",
                       "-qq",    "-o", trace, "-e"};  // -D: the command is the child, not its tracer
  words.push_back("trace=%file,fstat,fstatfs,fchdir,getdents64,ioctl,fgetxattr,flistxattr");
  words.insert(words.end(), command.begin(), command.end());
  return words;
}

/// The traced calls that name `folder` or something below it.
std::vector<std::string> callsThatTouch(const std::string& folder, const std::string& trace) {
  std::vector<std::string> calls;
  std::ifstream file(trace);
  for (std::string line; std::getline(file, line);) {
    if (line.find(folder) != std::string::npos) calls.push_back(line);
  }
  return calls;
}

TEST_F(ToolStory, WatchAsksNothingOfTheVolumesItWatches) {
  if (!isInstalled("strace")) GTEST_SKIP() << "needs strace";
  if (run(traced("/dev/null", {"true"})).exitCode != 0) GTEST_SKIP() << "needs the right to trace processes";
  const LoopDevice early = newVolume("ext4", "Early");
  const std::string volumes = space().folder("volumes");
  const std::string first = space().folder("volumes/first"), second = space().folder("volumes/second");
  mountVolume(early.node(), first, "ext4");
  bindMount(first, space().folder("volumes/bound"));

  // Longer than a listing waits when nothing is held back.
  const char* const slow = "inject=openat:delay_enter=1000000";
  const Ran listed = run({"strace", "-D", "-f", "-qq", "-o", "/dev/null", "-P", early.node(), "-e", slow,
                          KMVDRIVE_PROGRAM, "list", "--json"},
                         {"ASAN_OPTIONS=detect_leaks=0"}, Process::Errors::kept);
  EXPECT_THAT(listed.errors + listed.output, AllOf(StartsWith("{"), HasSubstr(R"("name":"Early")")));

  const std::string trace = space().path("trace");
  // The leak sanitizer cannot do its work in a traced process.
  Watch watch(volumes, traced(trace, kmvdrive({"watch", "--json"})), {"ASAN_OPTIONS=detect_leaks=0"});
  watch.expect({"present first"});
  mountVolume(card().node(), second, "ext4");
  watch.expect({"added second"});
  unmount(first);
  watch.expect({"removed first", "added bound"});
  unmount(second);
  watch.expect({"removed second"});
  // A few cycles of the activity monitor are in it: it reads the counters of what is mounted.
  ASSERT_TRUE(eventually([&] {
    return callsThatTouch("/stat\"", trace).size() + callsThatTouch("/proc/diskstats", trace).size() > 0;
  }));
  watch.stop();  // then the trace is complete as well
  EXPECT_EQ(callsThatTouch(volumes, trace), std::vector<std::string>());

  // The same look finds a call on a mount point, and one below it through a descriptor.
  const std::string other = space().path("other-trace");
  EXPECT_EQ(run(traced(other, {"stat", volumes + "/bound"})).exitCode, 0);
  EXPECT_FALSE(callsThatTouch(volumes, other).empty());
}

#ifndef KMV_THREAD_SANITIZER

/// Each thread's name with the times that it was scheduled, in ascending order.
std::vector<std::pair<std::string, std::string>> effortOf(pid_t process) {
  std::vector<std::pair<std::string, std::string>> threads;
  for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    auto& [name, switches] = threads.emplace_back();
    std::ifstream status(task.path() / "status");
    for (std::string word, value; status >> word;) {
      if (word == "Name:") status >> name;
      if (word.ends_with("voluntary_ctxt_switches:") && status >> value) switches += value + " ";
    }
  }
  std::sort(threads.begin(), threads.end());
  return threads;
}

TEST_F(ToolStory, AWatchWithNothingToTellSleeps) {
  constexpr std::chrono::seconds kInterval{3};  // the length of what is measured, no wait for anything
  // The kernel sends device events to the network namespaces of the first user namespace only: in others nobody who
  // attaches a device wakes the program, and nobody else mounts in this story's mount namespace.
  const auto inside = [](Process::Words words) {
    words.insert(words.begin(), {"unshare", "--user", "--map-root-user", "--net"});
    return words;
  };
  if (run(inside({"true"})).exitCode != 0) GTEST_SKIP() << "needs user namespaces";
  Process watch(inside(kmvdrive({"watch"})));  // without activity, for which it would look every second
  mountCard();
  for (auto line = watch.readLine(); line && line->find("/card") == std::string::npos;)
    line = watch.readLine();
  const pid_t id = watch.id();
  // The program's second one awaits signals; the library's worker and timer are kept for the next event.
  ASSERT_TRUE(eventually([&] {
    return ::testing::Value(effortOf(id),
                            ElementsAre(Pair("kmv-events", _), Pair("kmv-timer", _), Pair("kmv-worker", _),
                                        Pair("kmvdrive", _), Pair("kmvdrive", _)));
  })) << ::testing::PrintToString(effortOf(id));
  // A worker that has rested for a while wakes once more, to see whether it is one too many, and so does the timer at
  // the limit of the first list.
  const auto sleeps = [&] {
    const auto before = effortOf(id);
    std::this_thread::sleep_for(kInterval);
    return effortOf(id) == before;
  };
  EXPECT_TRUE(sleeps() || sleeps() || sleeps());
}

#endif

}  // namespace
}  // namespace kmv::integration
