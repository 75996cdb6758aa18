// SPDX-License-Identifier: MIT
#include "kmvdrive/Output.h"
#include "support/Testing.h"

namespace kmv::tool {
namespace {

/// A pipe, closed at the end.
struct Pipe {
  Pipe() { EXPECT_EQ(pipe(ends.data()), 0); }
  ~Pipe() {
    for (const int end : ends) close(end);
  }
  std::array<int, 2> ends{};
};

class OutputTest : public testing::Test {
 protected:
  void SetUp() override { std::signal(SIGPIPE, SIG_IGN); }

  Pipe stop;
  Pipe reader;
  Output output{reader.ends[1], stop.ends[0]};
};

TEST_F(OutputTest, ALongTextReachesASlowReaderWhole) {
  const std::string text(1'000'000, 'x');
  std::string read;
  std::thread slow([&] {
    char bytes[1000];
    while (read.size() < text.size()) {
      const ssize_t count = ::read(reader.ends[0], bytes, sizeof bytes);
      if (count <= 0) break;
      read.append(bytes, static_cast<std::size_t>(count));
    }
  });
  EXPECT_TRUE(output.write(text));
  slow.join();
  EXPECT_EQ(read, text);
}

TEST_F(OutputTest, AReaderThatStandsStillDoesNotHinderAStopSignal) {
  ASSERT_EQ(write(stop.ends[1], "", 1), 1);
  EXPECT_TRUE(output.write("while there is room, lines are written whole\n"));
  EXPECT_FALSE(output.write(std::string(1'000'000, 'x')));
  EXPECT_FALSE(output.write("more")) << "ended is ended";
  EXPECT_FALSE(output.failed());
}

TEST_F(OutputTest, AReaderThatWentAwayIsNoErrorButAFullDiskIs) {
  close(reader.ends[0]);
  reader.ends[0] = open("/dev/null", O_RDONLY);
  EXPECT_FALSE(output.write("nobody reads"));
  EXPECT_FALSE(output.failed());

  const int full = open("/dev/full", O_WRONLY);
  ASSERT_GE(full, 0);
  Output onFullDisk(full, stop.ends[0]);
  EXPECT_FALSE(onFullDisk.write("text"));
  EXPECT_TRUE(onFullDisk.failed());
  EXPECT_FALSE(onFullDisk.failure().empty());
  close(full);
}

}  // namespace
}  // namespace kmv::tool
