// SPDX-License-Identifier: MIT
// The real program on the machine that runs the tests.
#include <gtest/gtest.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <sstream>
#include <string>

#include "kmvdrive/ChildProgram.h"

namespace {

using nlohmann::json;

std::set<std::string> urlsOf(const json& drives) {
  std::set<std::string> urls;
  for (const json& drive : drives)
    EXPECT_TRUE(urls.insert(drive.at("url")).second) << "listed twice: " << drive;
  return urls;
}

TEST(KmvdriveProgram, AnUnknownWayToCallItIsAUsageError) {
  const std::initializer_list<std::string> wrong[] = {{},
                                                      {"lits"},
                                                      {"list", "extra"},
                                                      {"list", "--for", "1"},
                                                      {"watch", "--for"},
                                                      {"watch", "--for", "-1"},
                                                      {"watch", "--for", "soon"},
                                                      {"watch", "--for", "nan"}};
  for (const auto& arguments : wrong) {
    ChildProgram program(arguments);
    EXPECT_EQ(program.exitCode(), 2);
    EXPECT_EQ(program.readErrors().rfind("kmvdrive: ", 0), 0U);
    EXPECT_EQ(program.readOutput(), "");
  }
}

TEST(KmvdriveProgram, HelpAndVersionAreOutputAndNoErrors) {
  ChildProgram version({"--version"});
  EXPECT_EQ(version.readOutput().rfind("kmvdrive ", 0), 0U);
  EXPECT_EQ(version.exitCode(), 0);
  ChildProgram help({"watch", "--help"});
  EXPECT_NE(help.readOutput().find("--for"), std::string::npos);
  EXPECT_EQ(help.exitCode(), 0);
}

TEST(KmvdriveProgram, ListTellsTheDrivesOfThisMachine) {
  ChildProgram list({"list", "--json", "--all"});
  const json listing = json::parse(list.readOutput());
  EXPECT_EQ(list.exitCode(), 0);
  EXPECT_EQ(listing.at("schema"), 1);
  urlsOf(listing.at("drives"));
  for (const json& drive : listing.at("drives")) {
    EXPECT_EQ(drive.at("mountedBeforeStart"), true) << drive;
    EXPECT_EQ(drive.at("url"), drive.at("description").at("DAVolumePath"));
    EXPECT_EQ(drive.at("path") == "/", drive.at("url") == "file:///");
  }
  for (const json& disk : listing.at("unmounted")) EXPECT_FALSE(disk.contains("url")) << disk;
  for (const json& mount : listing.at("hidden"))
    EXPECT_FALSE(mount.at("rule").get<std::string>().empty()) << mount;
  const auto isProc = [](const json& mount) {
    return mount.at("path") == "/proc" && mount.at("kind") == "proc";
  };
  EXPECT_TRUE(std::any_of(listing["hidden"].begin(), listing["hidden"].end(), isProc));
}

TEST(KmvdriveProgram, WatchBeginsWithWhatListTells) {
  ChildProgram list({"list", "--json"});
  const auto listed = urlsOf(json::parse(list.readOutput()).at("drives"));
  ChildProgram watch({"watch", "--json", "--for", "0.3"});
  std::istringstream lines(watch.readOutput());
  EXPECT_EQ(watch.exitCode(), 0);
  std::set<std::string> present;
  for (std::string line; std::getline(lines, line);) {
    const json event = json::parse(line);
    EXPECT_GT(event.at("time"), 1e9);
    if (event.at("event") != "present") continue;
    EXPECT_TRUE(present.insert(event.at("drive").at("url")).second) << "present twice: " << line;
  }
  EXPECT_EQ(present, listed);
}

TEST(KmvdriveProgram, EitherStopSignalEndsAWatchCleanly) {
  for (const int number : {SIGTERM, SIGINT}) {
    ChildProgram watch({"watch", "--json"});
    ASSERT_TRUE(watch.waitUntilItHandles(number));
    watch.signal(number);
    EXPECT_EQ(watch.exitCode(), 0);
    EXPECT_EQ(watch.readErrors(), "");
  }
}

TEST(KmvdriveProgram, AnIdleWatchEndsWhenItsReaderGoesAway) {
  ChildProgram list({"list", "--json"});
  const std::size_t drives = json::parse(list.readOutput()).at("drives").size();
  ChildProgram watch({"watch"});
  ASSERT_TRUE(watch.waitUntilItHandles(SIGTERM));
  for (std::size_t i = 0; i < drives; ++i) ASSERT_TRUE(watch.readLine()) << "drive " << i;
  watch.closeOutput();  // all is written, so only waiting can tell
  EXPECT_EQ(watch.exitCode(), 0);
  EXPECT_EQ(watch.readErrors(), "");
}

TEST(KmvdriveProgram, ListForAReaderThatHasGoneIsNoError) {
  ChildProgram list({"list"});
  list.closeOutput();
  EXPECT_EQ(list.exitCode(), 0);
  EXPECT_EQ(list.readErrors(), "");
}

}  // namespace
