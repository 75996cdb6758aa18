// SPDX-License-Identifier: MIT
// Attributes on real volumes, and a tool in a process of its own, in hosts of all kinds.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include "integration/support/Story.h"
#include "platform/Platform.h"
#include "platform/linux/LinuxPlatform.h"

namespace kmv::integration {
namespace {

using Gatherer = KMVExtendedAttributeGatherer;

class AttributeStory : public VolumeStory {
 protected:
  void SetUp() override {
    VolumeStory::SetUp();
    if (IsSkipped()) return;
    LinuxOptions options;
    options.programRoot = space().scratch();
    ASSERT_TRUE(Platform::install(std::make_unique<LinuxPlatform>(options)));
    std::filesystem::create_directories(space().path("usr/bin"));
    const LoopDevice card = newVolume("ext4", "Card");
    mountVolume(card.node(), space().folder("card"), "ext4");
    file = space().path("card/clip");
    std::ofstream(file) << "x";
  }
  /// A shell script in the tool's place.
  void installTool(const std::string& script) {
    const std::string tool = space().path("usr/bin/xattr");
    std::ofstream(tool) << "#!/bin/sh\n" << script;
    ASSERT_EQ(chmod(tool.c_str(), 0755), 0);
  }
  std::string file;
};

TEST_F(AttributeStory, NamesWithoutANameSpaceAreTheUsersOnAnOrdinaryVolume) {
  EXPECT_EQ(Gatherer::findLocationOfLTFSStartBlockAtLocation(file), -1);
  EXPECT_TRUE(Gatherer::setValueForLTFSExtendedAttributeAtLocation(file, "ltfs.startblock", "1234"));
  char value[8];
  EXPECT_EQ(getxattr(file.c_str(), "user.ltfs.startblock", value, sizeof value), 4) << "no NUL at its end";
  EXPECT_EQ(Gatherer::findLocationOfLTFSStartBlockAtLocation(file), 1234);
  EXPECT_TRUE(
      Gatherer::setValueForLTFSExtendedAttributeAtLocation(file, "ltfs.startblock", std::string(900, '7')));
  EXPECT_EQ(Gatherer::findLocationOfLTFSStartBlockAtLocation(file), 0);
  EXPECT_FALSE(Gatherer::setValueForLTFSExtendedAttributeAtLocation(file, "system.nothing", "x"));
  installTool("printf '%s|' \"$@\"; echo complaint >&2; exit 1\n");
  EXPECT_EQ(Gatherer::findValueOfExtendedAttribute(5, file), "-p|user.ltfs.startblock|" + file + "|");
  std::optional<Error> error;
  Gatherer::setExtendedCreationDateAttributesForFile(file, Date{0}, error);
  ASSERT_TRUE(error);
  EXPECT_EQ(*error->userInfo.text("result"),
            "-w|user.ltfs.createTime|2001-01-01T00:00:00.0Z|" + file + "|complaint\n");
}

TEST_F(AttributeStory, TheToolRunsInHostsOfAllKinds) {
  installTool("head -c 200000 /dev/zero | tr '\\0' x\nls -l /proc/self/fd >&2\n");
  const auto read = [&] { return Gatherer::findValueOfExtendedAttribute(0, file).value_or("absent").size(); };
  EXPECT_EQ(read(), 200'000u) << "more than a pipe holds";
  signal(SIGCHLD, SIG_IGN);
  EXPECT_EQ(read(), 200'000u);
  installTool("exit 0\n");
  std::optional<Error> error;
  Gatherer::setExtendedCreationDateAttributesForFile(file, Date{0}, error);
  EXPECT_FALSE(error) << "the status was lost, and there was nothing to complain of";
  signal(SIGCHLD, SIG_DFL);

  installTool("echo value; exit 3\n");
  const int saved[] = {fcntl(0, F_DUPFD_CLOEXEC, 10), fcntl(1, F_DUPFD_CLOEXEC, 10),
                       fcntl(2, F_DUPFD_CLOEXEC, 10)};
  for (int i = 0; i < 3; ++i) close(i);
  const auto value = Gatherer::findValueOfExtendedAttribute(0, file);
  for (int i = 0; i < 3; ++i) dup2(saved[i], i);
  EXPECT_EQ(value, "value");
  ASSERT_EQ(chmod(space().path("usr/bin/xattr").c_str(), 0644), 0);
  EXPECT_EQ(Gatherer::findValueOfExtendedAttribute(0, file), std::nullopt) << "it cannot be started";
}

}  // namespace
}  // namespace kmv::integration
