// SPDX-License-Identifier: MIT
// The real program on the machine that runs the tests.
#include <nlohmann/json.hpp>

#include "kmvdrive/InitialReport.h"
#include "support/Process.h"
#include "support/Terminal.h"
#include "support/Testing.h"

namespace kmv::test {
namespace {

using nlohmann::json;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::StartsWith;

/// kmvdrive with these arguments, its errors kept.
class Kmvdrive : public Process {
 public:
  explicit Kmvdrive(Words arguments) : Process(started(std::move(arguments)), {}, Errors::kept) {}
  void expectSuccess() {
    EXPECT_EQ(exitCode(), 0);
    EXPECT_EQ(readErrors(), "");
  }
  json readDocument() { return json::parse(readAll()); }

 private:
  static Words started(Words arguments) {
    arguments.insert(arguments.begin(), KMVDRIVE_PROGRAM);
    return arguments;
  }
};

/// kmvdrive with these arguments and redirections, as a shell starts it.
Ran runInShell(const std::string& arguments) {
  return run({"sh", "-c", "exec \"$0\" " + arguments, KMVDRIVE_PROGRAM}, {}, Process::Errors::kept);
}

std::set<std::string> urlsOf(const json& drives) {
  std::set<std::string> urls;
  for (const json& drive : drives)
    EXPECT_TRUE(urls.insert(drive.at("url")).second) << "listed twice: " << drive;
  return urls;
}

TEST(KmvdriveProgram, ReadsItsCommandLine) {
  for (const char* wrong : {"", "lits", "list extra", "list --for 1", "watch --for", "watch --for -1",
                            "watch --for soon", "watch --for nan"}) {
    const Ran ran = runInShell(wrong);
    EXPECT_EQ(ran.exitCode, 2) << wrong;
    EXPECT_THAT(ran.errors, StartsWith("kmvdrive: "));
    EXPECT_THAT(ran.output, IsEmpty());
  }
  EXPECT_THAT(runInShell("--version").output, StartsWith("kmvdrive "));
  const Ran help = runInShell("watch --help");
  EXPECT_THAT(help.output, HasSubstr("--for"));
  EXPECT_EQ(help.exitCode, 0);
}

TEST(KmvdriveProgram, EveryCommandTellsTheDrivesOfThisMachine) {
  Kmvdrive list({"list", "--json", "--all"}), top({"top", "--json", "--once"});
  Kmvdrive watch({"watch", "--json", "--for", "0.3"});
  const json listing = list.readDocument();
  list.expectSuccess();
  EXPECT_EQ(listing.at("schema"), 1);
  const auto urls = urlsOf(listing.at("drives"));
  for (const json& drive : listing.at("drives")) {
    EXPECT_EQ(drive.at("mountedBeforeStart"), true) << drive;
    EXPECT_EQ(drive.at("url"), drive.at("description").at("DAVolumePath"));
    EXPECT_EQ(drive.at("path") == "/", drive.at("url") == "file:///");
    Kmvdrive where({"where", "--json", drive.at("path")});
    EXPECT_EQ(where.readDocument().at("url"), drive.at("url"));
  }
  for (const json& disk : listing.at("unmounted")) EXPECT_FALSE(disk.contains("url")) << disk;
  std::set<std::string> hidden;
  for (const json& mount : listing.at("hidden")) {
    EXPECT_NE(mount.at("rule"), "") << mount;
    hidden.insert(mount.at("path").get<std::string>() + " " + mount.at("kind").get<std::string>());
  }
  EXPECT_TRUE(hidden.contains("/proc proc"));

  std::istringstream lines(watch.readAll());
  json present = json::array();
  for (std::string line; std::getline(lines, line);) {
    const json event = json::parse(line);
    EXPECT_GT(event.at("time"), 1e9);
    if (event.at("event") == "present") present.push_back(event.at("drive"));
  }
  EXPECT_EQ(urlsOf(present), urls);

  const json board = top.readDocument();
  EXPECT_EQ(urlsOf(board.at("drives")), urls);
  EXPECT_GE(board.at("total").at("writtenBytesPerSecond"), 0);
  for (const json& drive : board.at("drives"))
    EXPECT_TRUE(drive.at("measured") != "no" || !drive.contains("read")) << drive;
}

TEST(KmvdriveProgram, EndsCleanlyWhenAskedOrWhenNobodyReads) {
  for (const int number : {SIGTERM, SIGINT}) {
    Kmvdrive watch({"watch", "--json"});
    ASSERT_TRUE(watch.waitUntilItHandles(number));
    watch.signal(number);
    watch.expectSuccess();
  }
  for (const Process::Words& arguments : {Process::Words{"list"}, {"where", "/"}}) {
    Kmvdrive program(arguments);
    program.closeOutput();
    program.expectSuccess();
  }
  Kmvdrive watch({"watch"});
  while (const auto line = watch.readLine()) {
    if (line->find("  /  ") != std::string::npos) break;
  }
  watch.closeOutput();  // what was there is written, so only waiting can tell
  watch.expectSuccess();
}

TEST(KmvdriveProgram, ClosedStandardStreamsAreNotTakenForItsOwnFiles) {
  const Ran mute = runInShell("list >&-");
  EXPECT_EQ(mute.exitCode, 1);
  EXPECT_THAT(mute.errors, StartsWith("kmvdrive: cannot write: "));
  const Ran blind = runInShell("list <&- 2>&-");
  EXPECT_EQ(blind.exitCode, 0);
  EXPECT_THAT(blind.output, StartsWith("DEVICE "));
}

TEST(KmvdriveProgram, WithFewDescriptorsListTellsAllOrSaysThatItDoesNot) {
  const auto drivesOf = [](const Ran& ran) {
    json drives = json::parse(ran.output).at("drives");
    for (json& drive : drives) {
      for (const char* ofTheMoment : {"appeared", "space", "description"}) drive.erase(ofTheMoment);
    }
    return drives;
  };
  setenv("ASAN_OPTIONS", "detect_leaks=0", /*overwrite=*/1);  // the leak sanitizer needs descriptors
  const json all = drivesOf(runInShell("list --json"));
  for (const char* limit : {"8", "9", "10", "11", "12", "14", "20"}) {
    const std::string script = "exec 3>&- 4>&- 5>&- 6>&- 7>&-; ulimit -n $1 && exec \"$0\" list --json";
    const Ran ran = run({"sh", "-c", script, KMVDRIVE_PROGRAM, limit}, {}, Process::Errors::kept);
    if (ran.exitCode == 0) {
      EXPECT_EQ(drivesOf(ran), all) << limit;
    } else {
      EXPECT_EQ(ran.exitCode, 5) << limit << ran.errors;
      EXPECT_FALSE(json::parse(ran.output).at("degraded").empty()) << limit;
      EXPECT_THAT(ran.errors, HasSubstr("degraded: "));
    }
  }
}

TEST(KmvdriveProgram, TopGivesTheTerminalBackWhileItIsStoppedAndInTheEnd) {
  constexpr char kEnter[] = "\x1b[?1049h", kFrame[] = "\x1b[H", kLeave[] = "\x1b[?1049l";
  Terminal terminal;
  Process top({"sh", "-c", "exec \"$0\" top <\"$1\" >\"$1\"", KMVDRIVE_PROGRAM, terminal.name()},
              {"TERM=xterm"});
  ASSERT_TRUE(terminal.shows(kEnter));
  ASSERT_TRUE(terminal.shows(kFrame));
  top.signal(SIGTSTP);
  ASSERT_TRUE(terminal.shows(kLeave));
  EXPECT_TRUE(eventually([&] {
    top.signal(SIGCONT);  // in case it had not stopped yet
    return terminal.isShown(kEnter);
  }));
  EXPECT_TRUE(terminal.shows(kFrame));
  top.signal(SIGSTOP);  // which nobody notices
  top.signal(SIGCONT);
  EXPECT_TRUE(terminal.shows(kEnter));
  top.signal(SIGTERM);
  EXPECT_TRUE(terminal.shows(kLeave));
  EXPECT_EQ(top.exitCode(), 0);
}

/// What a report says on stderr.
std::string awaitReport() {
  ::testing::internal::CaptureStderr();
  tool::StopSignals stop;
  tool::EventLoop loop(STDOUT_FILENO, stop.fileDescriptor());
  EXPECT_TRUE(tool::awaitInitialReport(loop));
  return ::testing::internal::GetCapturedStderr();
}

TEST(InitialReport, AwaitsNoVolumeThatLeftBeforeItWasRegistered) {
  const auto awaited = KMVDiskArbiter::sharedInstance().disksAlreadyMountedAtInit();
  awaited->append(URL::fileURLWithPath("/nothing/is/mounted here", /*isDirectory=*/true));
  EXPECT_EQ(awaitReport(), "");
  EXPECT_EQ(awaited->count(), 1u) << "the library's contract keeps the entry";
}

TEST(InitialReport, IsOverWhenAllWereAnnounced) {
  std::size_t announced = 0;
  const auto registration = NotificationCenter::defaultCenter().addObserver(
      std::string(kDiskArbiterNewDiskDetectedNotification), [&](const Notification&) { ++announced; });
  EXPECT_EQ(awaitReport(), "");
  const auto drives = KMVDiskArbiter::sharedInstance().mountedDictionaries();
  EXPECT_EQ(announced, drives.size());
  EXPECT_GT(drives.size(), 0u);
}

}  // namespace
}  // namespace kmv::test
