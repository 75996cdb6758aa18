// SPDX-License-Identifier: MIT
// What this backend's files, walks and attributes do beyond what every backend does.
#include <sys/xattr.h>

#include "platform/linux/LinuxPlatform.h"
#include "support/DescriptorLimit.h"
#include "support/Process.h"
#include "support/TemporaryFolder.h"
#include "support/Testing.h"

namespace kmv {
namespace {

namespace fs = std::filesystem;
using test::DescriptorLimit;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

/// The limit that lets this process open so many descriptors more.
std::size_t limitWith(std::size_t left) {
  const int next = dup(0);
  close(next);
  return static_cast<std::size_t>(next) + left;
}

class LinuxFilesTest : public ::testing::Test {
 protected:
  LinuxFilesTest() {
    fs::create_directories(root_ / "usr/bin");
    root_.write("file", "x");
    LinuxOptions options;
    options.programRoot = root_.path();
    platform_.emplace(options);
  }

  std::string path(const std::string& name) const { return root_ / name; }
  /// The bytes of all files of a walk.
  std::uint64_t sizeOf(const std::string& name) {
    std::uint64_t size = 0;
    platform_->treeWalk().visitFiles(path(name), "", [&](const WalkedFile& file) {
      size += file.size;
      return true;
    });
    return size;
  }
  /// A shell script in the place of the attribute tool.
  void installTool(const std::string& script, unsigned mode = 0755) {
    const std::string tool = path("usr/bin/xattr");
    std::ofstream(tool) << "#!/bin/sh\n" << script;
    ASSERT_EQ(chmod(tool.c_str(), mode), 0);
  }
  ChildProcess::Result runTool(const std::string& option, std::optional<std::string> value = {},
                               bool collectsErrors = false) {
    return platform_->extendedAttributes().runTool(
        {"/usr/bin/xattr", option, "kmv.name", std::move(value), path("file"), collectsErrors});
  }

  test::TemporaryFolder root_;
  std::optional<LinuxPlatform> platform_;
};

TEST_F(LinuxFilesTest, WhatIsNoRegularFileIsNotRead) {
  Files& files = platform_->files();
  ASSERT_EQ(mkfifo(path("pipe").c_str(), 0600), 0);
  for (const std::string& name : {path("pipe"), std::string("/dev/zero"), std::string("/dev/null")}) {
    EXPECT_EQ(files.readRegularFile(name, 100).bytes, std::nullopt) << name;
    EXPECT_EQ(files.openForReading(name), nullptr) << name;
  }
  EXPECT_EQ(files.readRegularFile("/proc/self/status", 10).bytes, std::nullopt) << "longer than it says";
  EXPECT_EQ(*files.attributesOfItem("/dev/null")->text("NSFileType"), "NSFileTypeCharacterSpecial");
  ASSERT_EQ(chmod(path("file").c_str(), 05751), 0);
  EXPECT_EQ(files.attributesOfItem(path("file"))->find("NSFilePosixPermissions")->integerValue(), 05751);
  EXPECT_EQ(*files.attributesOfItem("/proc/self/exe")->text("NSFileType"), "NSFileTypeSymbolicLink");
}

TEST_F(LinuxFilesTest, NamesOfAttributesAreTheUsersUnlessTheySayOtherwise) {
  ExtendedAttributes& attributes = platform_->extendedAttributes();
  if (!attributes.set(path("file"), "kmv.name", "1234"))
    GTEST_SKIP() << "needs a volume with extended attributes";
  char value[8];
  EXPECT_EQ(getxattr(path("file").c_str(), "user.kmv.name", value, sizeof value), 4) << "no NUL at its end";
  EXPECT_EQ(attributes.get(path("file"), "user.kmv.name"), "1234");
  EXPECT_FALSE(attributes.set(path("file"), "system.nothing", "x"));
  installTool("printf '%s|' \"$@\"; echo complaint >&2; exit 3\n");
  const auto read = runTool("-p");
  EXPECT_EQ(read.output, "-p|user.kmv.name|" + path("file") + "|");
  EXPECT_EQ(read.exitStatus, 3);
  EXPECT_EQ(runTool("-w", "v w", /*collectsErrors=*/true).output,
            "-w|user.kmv.name|v w|" + path("file") + "|complaint\n");
}

TEST_F(LinuxFilesTest, TheToolRunsInHostsOfAllKinds) {
  installTool("head -c 200000 /dev/zero | tr '\\0' x\n");
  EXPECT_EQ(runTool("-p").output.size(), 200'000u) << "more than a pipe holds";
  // One that ignores and blocks every signal that it can.
  const auto ignoreAll = [](auto handler) {
    for (int number = 1; number <= SIGRTMAX; ++number) signal(number, handler);
  };
  sigset_t all, usual;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &usual);
  ignoreAll(SIG_IGN);
  // All but 32 and 33, which are the C library's own.
  installTool(
      "while read -r set mask; do case $set in SigBlk:|SigIgn:) echo $set $((0x$mask & ~0x180000000));; esac;"
      " done < /proc/$$/status\n");
  const auto lost = runTool("-p");
  ignoreAll(SIG_DFL);
  pthread_sigmask(SIG_SETMASK, &usual, nullptr);
  EXPECT_EQ(lost.output, "SigBlk: 0\nSigIgn: 0\n");
  EXPECT_EQ(lost.exitStatus, std::nullopt) << "SIGCHLD is ignored here";

  installTool("echo value\n");
  int saved[3];
  for (int i = 0; i < 3; ++i) saved[i] = fcntl(i, F_DUPFD_CLOEXEC, 10);
  for (int i = 0; i < 3; ++i) close(i);
  const auto value = runTool("-p");
  for (int i = 0; i < 3; ++i) dup2(saved[i], i);
  EXPECT_EQ(value.output, "value\n");
  installTool("echo value\n", 0644);
  EXPECT_FALSE(runTool("-p").started);
}

TEST_F(LinuxFilesTest, TreesOfEveryShapeAreAddedUp) {
  std::uint64_t deep = 0;
  for (std::string folder = "deep"; path(folder).size() < 3900;
       deep += 5) {  // nearly as long as paths can be
    root_.write(folder + "/file", "12345");
    folder += "/" + std::string(60, 'd');
  }
  EXPECT_EQ(sizeOf("deep"), deep);
  for (int i = 0; i < 600; ++i)
    root_.write("wide/" + std::to_string(i) + (i % 8 == 0 ? "/below/file" : "/file"), "1");
  for (int i = 0; i < 2500; ++i) root_.write("wide/flat/" + std::to_string(i), "1");
  EXPECT_EQ(sizeOf("wide"), 3100u);
  // Given up in the middle of a folder behind a link.
  fs::create_directory(root_ / "given up");
  fs::create_directory_symlink(root_ / "wide", root_ / "given up/link");
  int asked = 0;
  platform_->treeWalk().visitFiles(path("given up"), "", [&](const WalkedFile&) { return ++asked < 1000; });
  EXPECT_EQ(asked, 1000);
}

TEST_F(LinuxFilesTest, AShortageOfDescriptorsLosesNoFileInSilenceAndEnds) {
  for (std::string folder = "deep"; folder.size() < 100; folder += "/d") root_.write(folder + "/file", "1");
  for (int i = 0; i < 250; ++i) root_.write("wide/" + std::to_string(i) + "/file", "1");
  std::vector<std::string> log;
  OrvaneLog::defaultLog().setSink([&](OrvaneLog::Level, std::string_view line) { log.emplace_back(line); });
  for (std::size_t left = 1; left <= 5; ++left) {
    const DescriptorLimit few(limitWith(left));
    EXPECT_EQ(sizeOf("deep"), 48u) << left;
    EXPECT_EQ(sizeOf("wide"), 250u) << left;
  }
  EXPECT_THAT(log, IsEmpty());
  {
    const DescriptorLimit none(limitWith(0));
    EXPECT_EQ(sizeOf("deep"), 0u);
  }
  EXPECT_THAT(log, ElementsAre(HasSubstr(path("deep"))));
  OrvaneLog::defaultLog().setSink({});
  // Over in the middle of a walk: helpers read ahead again.
  auto few = std::make_unique<DescriptorLimit>(limitWith(3));
  const auto open = [] { return std::distance(fs::directory_iterator("/proc/self/fd"), {}); };
  const auto before = open();
  int visited = 0;
  platform_->treeWalk().visitFiles(path("wide"), "", [&](const WalkedFile&) {
    if (++visited == 50) few.reset();
    if (visited == 150) {
      EXPECT_TRUE(test::eventually([&] { return open() > before + 3; }));
    }
    return true;
  });
  EXPECT_EQ(visited, 250);
}

}  // namespace
}  // namespace kmv
