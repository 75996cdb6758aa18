// SPDX-License-Identifier: MIT
// What the program asks of volumes: Codex volumes at one mount point, and attributes shown on a terminal.
#include "codexvfs/CodexVolume.h"
#include "kmvdrive/CodexFeed.h"
#include "kmvdrive/CommandLine.h"
#include "support/Terminal.h"
#include "support/Testing.h"

namespace kmv::simulation {
namespace {

using test::Terminal;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::Not;

class CodexNews : public CodexVolume {
 protected:
  /// A drive has come; what was told of it.
  Lines afterArrival() {
    feed.ask(*registry.drive(root.path())->snapshot());
    return told();
  }
  Lines told() {
    machine.runUntilIdle();
    return std::exchange(told_, {});
  }
  void replaceVolume(const std::string& document) {
    machine.unplug(drive);
    drive = machine.plugInPathVolume({.mountPoint = root.path(), .name = "Other", .kind = "fuse.codexvfs"});
    machine.runUntilIdle();
    write(document);
  }

 private:
  Lines told_;

 protected:
  tool::CodexFeed feed{[this](const tool::CodexStatus& status) { told_.push_back(tool::codexText(status)); }};
};

TEST_F(CodexNews, EachVolumeAtAMountPointIsAskedAnew) {
  write(kBuilt);
  EXPECT_EQ(afterArrival().back(), "built, 18 B");
  replaceVolume(kInitialising);
  EXPECT_THAT(afterArrival(), ElementsAre("initialising")) << "not what the first one was";
  addEmpty("clip", "1000");
  write(kBuilt);
  machine.advance(std::chrono::seconds(3));
  EXPECT_THAT(told(), ElementsAre("built, 1.0 kB"));
  EXPECT_FALSE(feed.isWaiting());
}

TEST_F(CodexNews, AVolumeFirstSeenAsBuiltByAMereReadingIsSizedAllTheSame) {
  write(kInitialising);
  KMVDriveWrapperManager::sharedInstance().codexVFSWrapper(
      root, *registry.drive(root.path())->snapshot(), /*requireIsReady=*/false, [this](const auto& wrapper) {
        write(kBuilt);
        wrapper->inspectVFSForLoadActivity();
      });
  machine.runUntilIdle();
  EXPECT_EQ(afterArrival().back(), "built, 18 B");
}

class Attributes : public RegistryTest {
 protected:
  Attributes() {
    machine.installProgram("/usr/bin/xattr", [](const auto&) {
      EXPECT_GT(write(STDERR_FILENO, "no \x1b[2J\n", 8), 0);
      return SimulatedRun{.output = "a: \x1b]0;x\x07\nb: c"};
    });
  }
  /// `kmvdrive attr list` with this descriptor as its output and errors.
  static void list(int descriptor) {
    const int saved[] = {dup(STDOUT_FILENO), dup(STDERR_FILENO)};
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) dup2(descriptor, stream);
    const char* const words[] = {"kmvdrive", "attr", "list", "/file"};
    const auto code = tool::runCommandLine(4, words);
    for (const int stream : {STDOUT_FILENO, STDERR_FILENO}) dup2(saved[stream - STDOUT_FILENO], stream);
    for (const int copy : saved) close(copy);
    EXPECT_EQ(code, tool::ExitCode::ok);
  }
};

TEST_F(Attributes, AreEscapedOnATerminalAndAsTheyAreInAPipe) {
  Terminal terminal;
  list(terminal.programsEnd());
  EXPECT_TRUE(terminal.shows("a: \\x1b]0;x\\x07\r\nb: c\r\n"));
  EXPECT_THAT(terminal.shown(), HasSubstr("no \\x1b[2J\r\n"));
  EXPECT_THAT(terminal.shown(), Not(HasSubstr("\x1b")));
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  list(ends[1]);
  char bytes[100];
  const ssize_t count = read(ends[0], bytes, sizeof bytes);
  EXPECT_EQ(std::string(bytes, static_cast<std::size_t>(count)), "no \x1b[2J\na: \x1b]0;x\x07\nb: c\n");
  for (const int end : ends) close(end);
}

}  // namespace
}  // namespace kmv::simulation
