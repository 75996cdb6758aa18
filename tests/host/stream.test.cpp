// SPDX-License-Identifier: MIT
#include <KMVDriveLibrary/host/OrvaneDataIO.h>

#include "support/Testing.h"

namespace {

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
