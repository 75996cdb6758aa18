// SPDX-License-Identifier: MIT
// Servers that do not answer, and users without rights.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <string>

#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "support/Sanitizers.h"

namespace kmv::integration {
namespace {

TEST_F(FuseStory, AServerThatDoesNotAnswerDelaysNobody) {
  constexpr std::chrono::seconds kLimit{5};
  const LoopDevice card = newVolume("ext4", "Card"), other = newVolume("ext4", "Other");
  FuseServer server(space().folder("fuse"));
  // A drive that is reached through the server, and a folder of that drive.
  mountVolume(card.node(), space().path("fuse/clips"), "ext4");
  ASSERT_EQ(mkdir(space().path("fuse/clips/day").c_str(), 0755), 0);
  bindMount(space().path("fuse/clips/day"), space().folder("day"));
  mountVolume(other.node(), space().folder("folder"), "ext4");
  server.stop();
  const auto start = std::chrono::steady_clock::now();
  Observer observer(space().scratch());
  EXPECT_TRUE(observer.waitFor([&] { return observer.all().size() == 3; }));
  EXPECT_EQ(observer.present(), (Observer::Lines{"folder", "fuse", "fuse/clips"}));
  unmount(space().path("folder"));
  EXPECT_TRUE(observer.waitFor([&] { return observer.all().back() == "removed folder"; }));
  mountVolume(other.node(), space().folder("second"), "ext4");
  EXPECT_TRUE(observer.waitFor([&] { return observer.all().back() == "added second"; }));
  EXPECT_LE(std::chrono::steady_clock::now() - start, kLimit);
  EXPECT_EQ(observer.hidingRule("day"), "folder");
  server.resume();
}

#ifndef KMV_THREAD_SANITIZER

class PlainUserStory : public Story {
 protected:
  void SetUp() override {
    std::string missing = missingForFuse();
    if (missing.empty()) missing = missingForUserNamespaces();
    // Opened now: a plain user may not get to where it was built.
    const int file = open(KMV_CODEX_FILE_SYSTEM, O_RDONLY | O_CLOEXEC);
    begin(missing, Namespace::As::plainUser);
    if (!IsSkipped()) program_ = copyProgram("/proc/self/fd/" + std::to_string(file), space());
  }
  std::string program_;
};

TEST_F(PlainUserStory, APlainUserSeesWhatAPlainUserMounts) {
  Observer observer(space().scratch());
  const std::string point = space().folder("fuse"), again = space().folder("again");
  mountVolume("nothing", space().folder("memory"), "tmpfs");
  FuseServer server(point, program_);
  observer.expect({"added fuse"});
  bindMount(point, again);
  observer.expect({});
  EXPECT_EQ(observer.hidingRule("again"), "bind");
  EXPECT_EQ(observer.hidingRule("memory"), "pseudo");
  unmount(point);
  observer.expect({"removed fuse", "added again"});
  unmount(again);
  observer.expect({"removed again"});
}

#endif

}  // namespace
}  // namespace kmv::integration
