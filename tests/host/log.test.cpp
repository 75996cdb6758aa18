// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/host/OrvaneLogging.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using Lines = std::vector<std::pair<OrvaneLog::Level, std::string>>;
using testing::ElementsAre;
using testing::Pair;

TEST(OrvaneLogTest, GivesEachLevelToTheSinkOfTheMomentAndToNobodyWithoutOne) {
  const OrvaneLog& log = OrvaneLog::defaultLog();
  log.logError("before there is a sink");
  Lines first, second;
  OrvaneLog::defaultLog().setSink([&](auto level, auto line) { first.emplace_back(level, line); });
  log.logDebug("d");
  log.logInfo("i");
  log.logError("e");
  OrvaneLog::defaultLog().setSink([&](auto level, auto line) { second.emplace_back(level, line); });
  log.logInfo("to the second sink");
  OrvaneLog::defaultLog().setSink({});
  log.logInfo("after the sinks");

  EXPECT_THAT(first, ElementsAre(Pair(OrvaneLog::Level::debug, "d"), Pair(OrvaneLog::Level::info, "i"),
                                 Pair(OrvaneLog::Level::error, "e")));
  EXPECT_THAT(second, ElementsAre(Pair(OrvaneLog::Level::info, "to the second sink")));
}

TEST(OrvaneLogTest, ASinkMayLogAndReplaceItself) {
  OrvaneLog& log = OrvaneLog::defaultLog();
  std::vector<std::string> lines;
  log.setSink([&](auto, std::string_view line) {
    lines.emplace_back(line);
    if (line != "outer") return;
    log.logInfo("from within");
    log.setSink({});
  });
  log.logInfo("outer");
  log.logInfo("nobody listens any more");
  EXPECT_THAT(lines, ElementsAre("outer", "from within"));
}

// The sink's own state is what the sanitizers watch here: a sink must stay alive while another thread is
// inside it.
TEST(OrvaneLogTest, SinksAreReplacedWhileOthersLog) {
  OrvaneLog& log = OrvaneLog::defaultLog();
  std::thread writer([&] {
    for (int i = 0; i < 2000; ++i) log.logDebug("line");
  });
  for (int i = 0; i < 200; ++i) {
    const auto state = std::make_shared<const std::string>("line");
    log.setSink([state](auto, std::string_view line) { EXPECT_EQ(line, *state); });
  }
  writer.join();
  log.setSink({});
}

}  // namespace
