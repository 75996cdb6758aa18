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
  /// The exit code of `kmvdrive attr`, with this descriptor as its output.
  static tool::ExitCode run(std::vector<const char*> words, int descriptor) {
    words.insert(words.begin(), {"kmvdrive", "attr"});
    const int saved = dup(STDOUT_FILENO);
    dup2(descriptor, STDOUT_FILENO);
    const auto code = tool::runCommandLine(static_cast<int>(words.size()), words.data());
    dup2(saved, STDOUT_FILENO);
    close(saved);
    return code;
  }
  /// What a pipe gets.
  static std::string printed(const std::vector<const char*>& words) {
    int ends[2];
    EXPECT_EQ(pipe(ends), 0);
    EXPECT_EQ(run(words, ends[1]), tool::ExitCode::ok);
    char bytes[100];
    const ssize_t count = fcntl(ends[0], F_SETFL, O_NONBLOCK) == 0 ? read(ends[0], bytes, sizeof bytes) : -1;
    for (const int end : ends) close(end);
    return std::string(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  }
};

TEST_F(Attributes, AreEscapedOnATerminalAndBytesInAPipeAndFailuresHaveCodes) {
  machine.removeProgram("/usr/bin/xattr");  // which is not needed
  machine.createItem("/file");
  machine.setAttribute("/file", "b", "\x1b]0;x\x07");
  EXPECT_EQ(printed({"set", "/file", "startblock", "42"}), "");
  EXPECT_EQ(machine.attribute("/file", "ltfs.startblock"), "42");
  Terminal terminal;
  EXPECT_EQ(run({"list", "/file"}, terminal.programsEnd()), tool::ExitCode::ok);
  EXPECT_TRUE(terminal.shows("b: \\x1b]0;x\\x07\r\nltfs.startblock: 42\r\n"));
  EXPECT_THAT(terminal.shown(), Not(HasSubstr("\x1b")));
  EXPECT_EQ(printed({"get", "/file", "b"}), "\x1b]0;x\x07");
  EXPECT_EQ(printed({"list", "--json", "/file"}),
            R"({"schema":1,"attributes":{"b":"G10wO3gH","ltfs.startblock":"NDI="}})"
            "\n");
  EXPECT_EQ(run({"get", "/file", "c"}, STDOUT_FILENO), tool::ExitCode::notFound);
  EXPECT_EQ(run({"list", "/missing"}, STDOUT_FILENO), tool::ExitCode::notFound);
  EXPECT_EQ(run({"set", "/missing", "b", "1"}, STDOUT_FILENO), tool::ExitCode::notFound);
}

}  // namespace
}  // namespace kmv::simulation
