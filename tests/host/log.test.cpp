// SPDX-License-Identifier: MIT
#include "support/Testing.h"

namespace {

TEST(OrvaneLogTest, GivesEachLevelToTheCurrentSinkWhichMayLogAndReplaceItself) {
  OrvaneLog& log = OrvaneLog::defaultLog();
  std::string lines;
  const auto note = [&](OrvaneLog::Level level, std::string_view line) {
    lines += std::to_string(static_cast<int>(level)) + std::string(line) + ' ';
  };
  log.logError("before there is a sink");
  log.setSink(note);
  log.logDebug("debug");
  log.logInfo("info");
  log.logError("error");
  log.setSink([&](auto level, auto line) {
    note(level, line);
    if (line != "outer") return;
    log.logInfo("inner");
    log.setSink({});
  });
  log.logInfo("outer");
  log.logInfo("after the sinks");
  EXPECT_EQ(lines, "0debug 1info 2error 1outer 1inner ");
}

// The sanitizers watch the sink's state: it must stay alive while another thread is inside the sink.
TEST(OrvaneLogTest, SinksAreReplacedWhileOthersLog) {
  OrvaneLog& log = OrvaneLog::defaultLog();
  std::thread writer([&] {
    for (int i = 0; i < 2000; ++i) log.logDebug("line");
  });
  for (int i = 0; i < 200; ++i) {
    log.setSink(
        [state = std::make_shared<const std::string>("line")](auto, auto line) { EXPECT_EQ(line, *state); });
  }
  writer.join();
  log.setSink({});
}

}  // namespace
