// SPDX-License-Identifier: MIT
// The real program on the machine that runs the tests.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>

#include "support/Process.h"

namespace {

using kmv::test::Process;
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

std::set<std::string> urlsOf(const json& drives) {
  std::set<std::string> urls;
  for (const json& drive : drives)
    EXPECT_TRUE(urls.insert(drive.at("url")).second) << "listed twice: " << drive;
  return urls;
}

std::set<std::string> listedURLs() {
  return urlsOf(Kmvdrive({"list", "--json"}).readDocument().at("drives"));
}

TEST(KmvdriveProgram, ReadsItsCommandLine) {
  const Process::Words wrong[] = {{},
                                  {"lits"},
                                  {"list", "extra"},
                                  {"list", "--for", "1"},
                                  {"watch", "--for"},
                                  {"watch", "--for", "-1"},
                                  {"watch", "--for", "soon"},
                                  {"watch", "--for", "nan"}};
  for (const auto& arguments : wrong) {
    Kmvdrive program(arguments);
    EXPECT_EQ(program.exitCode(), 2) << ::testing::PrintToString(arguments);
    EXPECT_THAT(program.readErrors(), StartsWith("kmvdrive: "));
    EXPECT_THAT(program.readAll(), IsEmpty());
  }
  Kmvdrive version({"--version"}), help({"watch", "--help"});
  EXPECT_THAT(version.readAll(), StartsWith("kmvdrive "));
  version.expectSuccess();
  EXPECT_THAT(help.readAll(), HasSubstr("--for"));
  help.expectSuccess();
}

TEST(KmvdriveProgram, ListTellsTheDrivesOfThisMachine) {
  Kmvdrive list({"list", "--json", "--all"});
  const json listing = list.readDocument();
  EXPECT_EQ(list.exitCode(), 0);
  EXPECT_EQ(listing.at("schema"), 1);
  urlsOf(listing.at("drives"));
  for (const json& drive : listing.at("drives")) {
    EXPECT_EQ(drive.at("mountedBeforeStart"), true) << drive;
    EXPECT_EQ(drive.at("url"), drive.at("description").at("DAVolumePath"));
    EXPECT_EQ(drive.at("path") == "/", drive.at("url") == "file:///");
  }
  for (const json& disk : listing.at("unmounted")) EXPECT_FALSE(disk.contains("url")) << disk;
  bool hidesProc = false;
  for (const json& mount : listing.at("hidden")) {
    EXPECT_NE(mount.at("rule"), "") << mount;
    hidesProc = hidesProc || (mount.at("path") == "/proc" && mount.at("kind") == "proc");
  }
  EXPECT_TRUE(hidesProc);
}

TEST(KmvdriveProgram, WatchBeginsWithWhatListTells) {
  Kmvdrive watch({"watch", "--json", "--for", "0.3"});
  std::istringstream lines(watch.readAll());
  EXPECT_EQ(watch.exitCode(), 0);
  json present = json::array();
  for (std::string line; std::getline(lines, line);) {
    const json event = json::parse(line);
    EXPECT_GT(event.at("time"), 1e9);
    if (event.at("event") == "present") present.push_back(event.at("drive"));
  }
  EXPECT_EQ(urlsOf(present), listedURLs());
}

TEST(KmvdriveProgram, TopAndWhereKnowTheDrivesThatListTells) {
  Kmvdrive top({"top", "--json", "--once"});
  const json board = top.readDocument();
  top.expectSuccess();
  EXPECT_EQ(urlsOf(board.at("drives")), listedURLs());
  EXPECT_GE(board.at("total").at("writtenBytesPerSecond"), 0);
  for (const json& drive : board.at("drives")) {
    EXPECT_TRUE(drive.at("measured") != "no" || !drive.contains("read")) << drive;
    Kmvdrive where({"where", "--json", drive.at("path")});
    EXPECT_EQ(where.readDocument().at("url"), drive.at("url"));
    where.expectSuccess();
  }
}

TEST(KmvdriveProgram, EndsCleanlyWhenAskedOrWhenNobodyReads) {
  for (const int number : {SIGTERM, SIGINT}) {
    Kmvdrive watch({"watch", "--json"});
    ASSERT_TRUE(watch.waitUntilItHandles(number));
    watch.signal(number);
    watch.expectSuccess();
  }
  Kmvdrive list({"list"});
  list.closeOutput();
  list.expectSuccess();

  const std::size_t drives = listedURLs().size();
  Kmvdrive watch({"watch"});
  for (std::size_t i = 0; i < drives; ++i) ASSERT_TRUE(watch.readLine()) << "drive " << i;
  watch.closeOutput();  // all is written, so only waiting can tell
  watch.expectSuccess();
}

}  // namespace
