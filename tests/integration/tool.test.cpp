// SPDX-License-Identifier: MIT
// kmvdrive beside real volumes: what it tells, what it asks of the kernel, and that it sleeps with nothing to tell.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>
#include <thread>

#include "integration/support/Story.h"
#include "kmvdrive/CommandLine.h"
#include "support/Sanitizers.h"

namespace kmv::integration {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::StartsWith;

/// `kmvdrive watch --json` and its lines about drives below one folder.
class Watch {
 public:
  Watch(std::string folder, Process::Words words, const Process::Words& environment = {})
      : folder_(std::move(folder)), process_(std::move(words), environment) {}

  /// The next event about the folder; null when none comes.
  json next() {
    while (const auto line = process_.readLine()) {
      json event = json::parse(*line);
      if (event.at("event") == "activity") continue;  // what others do to their drives
      if (event.at("drive").at("path").get<std::string>().starts_with(folder_ + "/")) return event;
    }
    return nullptr;
  }
  /// "added first", or why not.
  std::string nextInShort() {
    const json event = next();
    if (event.is_null()) return "nothing";
    EXPECT_GE(event.at("time"), lastTime_);
    lastTime_ = event.at("time");
    return event.at("event").get<std::string>() + " " +
           event.at("drive").at("path").get<std::string>().substr(folder_.size() + 1);
  }
  Process& process() { return process_; }

 private:
  std::string folder_;
  Process process_;
  double lastTime_ = 1e9;
};

TEST_F(VolumeStory, WatchTellsTheLifeOfAVolumeAndEndsWhenAsked) {
  const LoopDevice early = newVolume("ext4", "Early"), card = newVolume("ext4", "Card");
  mountVolume(early.node(), space().folder("early"), "ext4");
  Watch watch(space().scratch(), {KMVDRIVE_PROGRAM, "watch", "--json"});
  const json present = watch.next();
  EXPECT_EQ(present.value("event", ""), "present");
  EXPECT_EQ(present.at("drive").at("name"), "Early");
  EXPECT_EQ(present.at("drive").at("bsdName"), early.name());
  EXPECT_EQ(present.at("drive").at("mountedBeforeStart"), true);

  const std::string first = space().folder("first"), second = space().folder("second");
  const std::pair<std::function<void()>, std::vector<std::string>> life[] = {
      {[&] { mountVolume(card.node(), first, "ext4"); }, {"added first"}},
      {[&] { unmount(first); }, {"removed first"}},
      {[&] { mountVolume(card.node(), first, "ext4"); }, {"added first"}},
      {[&] { moveMount(first, second); }, {"removed first", "added second"}},
      {[&] { unmount(second); }, {"removed second"}},
      {[&] { unmount(space().path("early")); }, {"removed early"}}};
  for (const auto& [change, events] : life) {
    change();
    for (const std::string& event : events) EXPECT_EQ(watch.nextInShort(), event);
  }
  watch.process().signal(SIGTERM);
  EXPECT_EQ(watch.process().readAll(), "");
  EXPECT_EQ(watch.process().exitCode(), 0);
}

// --- The tree ---

/// The disk of this name in `kmvdrive tree --json`; null when it is not there.
json diskInTree(const std::string& name) {
  const json document = json::parse(run({KMVDRIVE_PROGRAM, "tree", "--json"}).output);
  for (const json& disk : document.at("disks")) {
    if (disk.at("name") == name) return disk;
  }
  return nullptr;
}

TEST_F(VolumeStory, TheTreeShowsADiskWithItsPartitionsUntilItIsDetached) {
  constexpr long long kMegabyte = 1 << 20;
  const std::string image = space().path("disk.img"), point = space().folder("card");
  std::ofstream(image).close();
  std::filesystem::resize_file(image, 80 * kMegabyte);
  LoopDevice disk(image);
  for (const char* number : {"1", "2"}) {
    const int place = *number - '0';
    if (!disk.addPartition(place, (32 * place - 31) * kMegabyte, 32 * kMegabyte))
      GTEST_SKIP() << "needs a kernel with partitions on loop devices";
    ASSERT_TRUE(eventually([&] { return access((disk.node() + "p" + number).c_str(), R_OK) == 0; }));
    ASSERT_EQ(
        run({"mkfs.ext4", "-q", "-L", std::string("Part") + number, disk.node() + "p" + number}).exitCode, 0);
  }
  mountVolume(disk.node() + "p1", point, "ext4");
  json tree = diskInTree(disk.name());
  ASSERT_FALSE(tree.is_null());
  for (json& partition : tree["partitions"]) {  // an identity is given to what is mounted
    EXPECT_EQ(partition.erase("uuid"), partition["mountPoints"].size());
  }
  const auto part = [&](const char* number, const json& points) {
    return json{{"name", disk.name() + "p" + number},
                {"volumeName", std::string("Part") + number},
                {"kind", "ext4"},
                {"size", 32 * kMegabyte},
                {"mountPoints", points}};
  };
  EXPECT_EQ(tree["partitions"], json::array({part("1", json::array({point})), part("2", json::array())}));
  EXPECT_EQ(tree["size"], 80 * kMegabyte);
  EXPECT_EQ(tree["containers"], json::array());
  EXPECT_THAT(run({KMVDRIVE_PROGRAM, "tree"}).output,
              HasSubstr("├─ " + disk.name() + "p1  34 MB  ext4  \"Part1\"  " + point + "\n└─ " + disk.name() +
                        "p2  34 MB  ext4  \"Part2\"  not mounted\n"));
  unmount(point);
  disk.detach();
  EXPECT_TRUE(diskInTree(disk.name()).is_null());
}

// --- Commands ---

TEST_F(VolumeStory, AnUnmountAndARenameEndWithACodeThatTellsScriptsHow) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card");
  mountVolume(card.node(), point, "ext4");
  const auto command = [](Process::Words words) {
    words.insert(words.begin(), KMVDRIVE_PROGRAM);
    const Ran ran = run(std::move(words), {}, Process::Errors::kept);
    return std::to_string(ran.exitCode.value_or(-1)) + " " + ran.output + ran.errors;
  };
  EXPECT_EQ(command({"rename", point, "Reel"}), "0 renamed \"" + point + "\" to \"Reel\"\n");
  EXPECT_EQ(blkidValue(card.node(), "LABEL"), "Reel");
  EXPECT_THAT(command({"rename", point, "a name far too long"}), StartsWith("4 kmvdrive: cannot rename"));
  EXPECT_THAT(command({"unmount", point + "/lost+found"}), StartsWith("3 kmvdrive: no drive is mounted at"));
  {
    Process holder({"sh", "-c", "cd \"$1\" && echo in && exec sleep 100", "sh", point});
    ASSERT_EQ(holder.readLine(), "in");
    EXPECT_EQ(command({"unmount", point}), "4 kmvdrive: cannot unmount \"" + point +
                                               "\": something on it is in use (status 0xF8DA0002, process " +
                                               std::to_string(holder.id()) + ")\n");
  }
  EXPECT_EQ(command({"unmount", point + "/"}), "0 unmounted \"" + point + "\"\n");
  EXPECT_THAT(command({"unmount", point}), StartsWith("3 "));
}

/// What this process prints while it runs `kmvdrive`, line by line as it comes.
class OwnOutput {
 public:
  OwnOutput() : before_(dup(STDOUT_FILENO)) {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) return;
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
    lines_ = fdopen(ends[0], "r");
  }
  ~OwnOutput() {
    dup2(before_, STDOUT_FILENO);
    close(before_);
    fclose(lines_);
  }
  json next() {
    char line[8192];
    while (std::fgets(line, sizeof line, lines_) != nullptr) {
      json event = json::parse(line);
      if (event.at("event") != "activity") return event;  // what others do to their drives
    }
    return {};
  }

 private:
  int before_;
  FILE* lines_ = nullptr;
};

TEST_F(VolumeStory, AWatchShowsTheAnswersToCommandsOfItsProcess) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string point = space().folder("card");
  mountVolume(card.node(), point, "ext4");
  const URL root = URL::fileURLWithPath(point, true);
  std::vector<json> answers;
  std::thread host([&, output = std::make_unique<OwnOutput>()] {
    while (output->next()["drive"]["path"] != point) {
    }
    KMVDiskArbiter& arbiter = KMVDiskArbiter::sharedInstance();
    const int held = open(point.c_str(), O_RDONLY | O_CLOEXEC);
    arbiter.unmountVolumeAtRootURL(root);
    answers.push_back(output->next());
    close(held);
    for (const char* name : {"Reel", "a name far too long"}) {
      arbiter.renameDriveWithRootURL(root, name);
      answers.push_back(output->next());
    }
    kill(getpid(), SIGTERM);
  });
  const char* const words[] = {"kmvdrive", "watch", "--json"};
  EXPECT_EQ(tool::runCommandLine(3, words), tool::ExitCode::ok);
  host.join();
  ASSERT_EQ(answers.size(), 3u);
  for (json& answer : answers) {
    EXPECT_EQ(answer["path"], point);
    EXPECT_EQ(answer["url"], root.absoluteString());
    EXPECT_TRUE(answer["time"].is_number());
  }
  EXPECT_EQ(answers[0]["event"], "ejectionRejected");
  EXPECT_EQ(answers[0]["status"], dissent::kBusy);
  EXPECT_EQ(answers[0]["pid"], getpid());
  EXPECT_EQ(answers[1]["event"], "renameSucceeded");
  EXPECT_EQ(answers[2]["event"], "renameFailed");
}

// --- What it asks of the kernel ---

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

TEST_F(VolumeStory, WatchAsksNothingOfTheVolumesItWatches) {
  if (!isInstalled("strace")) GTEST_SKIP() << "needs strace";
  if (run(traced("/dev/null", {"true"})).exitCode != 0) GTEST_SKIP() << "needs the right to trace processes";
  const LoopDevice early = newVolume("ext4", "Early"), card = newVolume("ext4", "Card");
  const std::string volumes = space().folder("volumes");
  const std::string first = space().folder("volumes/first"), second = space().folder("volumes/second");
  mountVolume(early.node(), first, "ext4");
  bindMount(first, space().folder("volumes/bound"));

  const std::string trace = space().path("trace");
  // The leak sanitizer cannot do its work in a traced process.
  Watch watch(space().scratch(), traced(trace, {KMVDRIVE_PROGRAM, "watch", "--json"}),
              {"ASAN_OPTIONS=detect_leaks=0"});
  EXPECT_EQ(watch.nextInShort(), "present volumes/first");
  mountVolume(card.node(), second, "ext4");
  EXPECT_EQ(watch.nextInShort(), "added volumes/second");
  unmount(first);
  EXPECT_EQ(watch.nextInShort(), "removed volumes/first");
  EXPECT_EQ(watch.nextInShort(), "added volumes/bound");
  unmount(second);
  EXPECT_EQ(watch.nextInShort(), "removed volumes/second");
  // A few cycles of the activity monitor are in it: it reads the counters of what is mounted.
  ASSERT_TRUE(eventually([&] {
    return callsThatTouch("/stat\"", trace).size() + callsThatTouch("/proc/diskstats", trace).size() > 0;
  }));
  watch.process().signal(SIGTERM);
  watch.process().readAll();  // to its end: then the trace is complete as well
  EXPECT_EQ(watch.process().exitCode(), 0);
  EXPECT_EQ(callsThatTouch(volumes, trace), std::vector<std::string>());
  EXPECT_FALSE(callsThatTouch("/proc/self/mountinfo", trace).empty()) << "the trace shows nothing";

  // The same look finds a call on a mount point, and one below it through a descriptor.
  const std::string other = space().path("other-trace");
  EXPECT_EQ(run(traced(other, {"stat", volumes + "/bound"})).exitCode, 0);
  EXPECT_FALSE(callsThatTouch(volumes, other).empty());
}

// --- Sleep ---

#ifndef KMV_THREAD_SANITIZER

/// What the kernel counted for a process: its threads by name, the times that they were scheduled, and their
/// time on a CPU.
struct Effort {
  std::multiset<std::string> threads;
  unsigned long long switches = 0;
  unsigned long long ticks = 0;
  friend bool operator==(const Effort&, const Effort&) = default;
};

Effort effortOf(pid_t process) {
  Effort effort;
  const std::string folder = "/proc/" + std::to_string(process);
  for (const auto& task : std::filesystem::directory_iterator(folder + "/task")) {
    std::ifstream status(task.path() / "status");
    for (std::string word, value; status >> word;) {
      if (word == "Name:" && status >> value) effort.threads.insert(value);
      if (word.ends_with("voluntary_ctxt_switches:") && status >> value)
        effort.switches += std::stoull(value);
    }
  }
  std::string line;
  std::getline(std::ifstream(folder + "/stat"), line);
  std::istringstream fields(line.substr(line.rfind(')') + 2));
  std::string field;
  for (int number = 3; number <= 15 && fields >> field; ++number) {
    if (number >= 14) effort.ticks += std::stoull(field);
  }
  return effort;
}

TEST_F(VolumeStory, AWatchWithNothingToTellSleeps) {
  constexpr std::chrono::seconds kInterval{3};  // the length of what is measured, no wait for anything
  constexpr int kMostAttempts = 10;
  const LoopDevice card = newVolume("ext4", "Card");
  Process watch({KMVDRIVE_PROGRAM, "watch"});  // without activity, for which it would look every second
  mountVolume(card.node(), space().folder("card"), "ext4");
  for (auto line = watch.readLine(); line && line->find("/card") == std::string::npos;)
    line = watch.readLine();
  const pid_t id = watch.id();
  const std::multiset<std::string> steady{"kmvdrive", "kmv-events"};
  ASSERT_TRUE(eventually([&] { return effortOf(id).threads == steady; }))
      << ::testing::PrintToString(effortOf(id).threads);

  // Device events know no namespace, so whoever else uses this machine may wake it; a timer of its own always would.
  const auto sleeps = [&] {
    const Effort before = effortOf(id);
    std::this_thread::sleep_for(kInterval);
    return effortOf(id) == before;
  };
  bool slept = false;
  for (int attempt = 0; attempt < kMostAttempts && !slept; ++attempt) slept = sleeps();
  EXPECT_TRUE(slept);
}

#endif

}  // namespace
}  // namespace kmv::integration
