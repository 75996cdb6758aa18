// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/host/OrvaneDataIO.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

/// What one use of a reader tells: open or not, the sizes of the blocks, how the cycle ended.
std::string use(const kmv::URL& file, bool stopsAtOnce = false) {
  std::string told;
  const auto reader = StreamFileReader::reader(file);
  reader->openForReading([&](bool isOpen) { told += isOpen ? "open" : "closed"; });
  reader->beginByteSupplyCycle(
      [&](auto bytes, std::size_t count, bool& stop) {
        told += " " + std::to_string(count) + static_cast<char>(bytes[count - 1]);
        stop = stopsAtOnce;
      },
      [&](const auto& error) { told += error ? " error " + std::to_string(error->code) : " end"; });
  reader->closeIOWithCompletionHandler([&] { told += " done"; });
  return told;
}

TEST(StreamFileReaderTest, ReadsRegularFilesInBlocksOfAMegabyte) {
  const std::string path = testing::TempDir() + "kmv_stream." + std::to_string(getpid());
  std::ofstream(path) << std::string(1 << 20, 'a') << "bcd";
  const auto file = kmv::URL::fileURLWithPath(path, false);
  EXPECT_EQ(use(file), "open 1048576a 3d end done");
  EXPECT_EQ(use(file, true), "open 1048576a end done");
  std::filesystem::remove(path);
  EXPECT_EQ(use(file), "closed error 1 done");
}

TEST(StreamFileReaderTest, IsMadeByTheHostsFactoryUntilThatIsTakenBack) {
  const auto file = kmv::URL::fileURLWithPath("/", false);
  StreamFileReader::setFactory([](const kmv::URL&) { return nullptr; });
  EXPECT_EQ(StreamFileReader::reader(file), nullptr);
  StreamFileReader::setFactory({});
  EXPECT_NE(StreamFileReader::reader(file), nullptr);
}

}  // namespace
