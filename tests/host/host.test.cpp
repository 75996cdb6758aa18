// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/host/OrvaneDataIO.h>

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

/// What one use of a reader tells: open or not, the sizes of the blocks, how the cycle ended. Adds what was read to
/// `content`.
std::string use(const kmv::URL& file, std::string& content, bool stopsAtOnce = false) {
  std::string told;
  const auto reader = StreamFileReader::reader(file);
  reader->openForReading([&](bool isOpen) { told += isOpen ? "open" : "closed"; });
  reader->beginByteSupplyCycle(
      [&](auto bytes, std::size_t count, bool& stop) {
        told += " " + std::to_string(count);
        content.append(reinterpret_cast<const char*>(bytes.get()), count);
        stop = stopsAtOnce;
      },
      [&](const auto& error) { told += error ? " error " + std::to_string(error->code) : " end"; });
  reader->closeIOWithCompletionHandler([&] { told += " done"; });
  return told;
}

TEST(StreamFileReaderTest, ReadsRegularFilesInBlocksOfAMegabyte) {
  const std::string path = testing::TempDir() + "kmv_stream." + std::to_string(getpid());
  std::string written, read;
  for (int i = 0; i < (1 << 20) + 3; ++i) written.push_back(static_cast<char>(i % 251));
  std::ofstream(path, std::ios::binary) << written;
  const auto file = kmv::URL::fileURLWithPath(path, false);
  EXPECT_EQ(use(file, read), "open 1048576 3 end done");
  EXPECT_TRUE(read == written) << "every byte, NUL too";
  EXPECT_EQ(use(file, read, true), "open 1048576 end done");
  std::filesystem::remove(path);
  EXPECT_EQ(use(file, read), "closed error 1 done");
}

TEST(StreamFileReaderTest, IsMadeByTheHostsFactoryUntilThatIsTakenBack) {
  const auto file = kmv::URL::fileURLWithPath("/", false);
  StreamFileReader::setFactory([](const kmv::URL&) { return nullptr; });
  EXPECT_EQ(StreamFileReader::reader(file), nullptr);
  StreamFileReader::setFactory({});
  EXPECT_NE(StreamFileReader::reader(file), nullptr);
}

}  // namespace
