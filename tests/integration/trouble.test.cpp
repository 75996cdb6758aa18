// SPDX-License-Identifier: MIT
// Servers that do not answer, and users without rights.
#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "support/Sanitizers.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

TEST_F(FuseStory, AServerThatDoesNotAnswerDelaysNobody) {
  constexpr std::chrono::seconds kLimit{5};
  const LoopDevice card = newVolume("ext4", "Card"), other = newVolume("ext4", "Other"),
                   spare = newVolume("ext4", "Spare");
  FuseServer server(space().folder("fuse"));
  // A drive that is reached through the server, and a folder of that drive.
  mountVolume(card.node(), space().path("fuse/clips"), "ext4");
  ASSERT_EQ(mkdir(space().path("fuse/clips/day").c_str(), 0755), 0);
  bindMount(space().path("fuse/clips/day"), space().folder("day"));
  mountVolume(other.node(), space().folder("folder"), "ext4");
  // A folder of a drive that is reached through an overlay over the server, and a file through one over none.
  const auto overlay = [&](const std::string& name, const std::string& lower) {
    const std::string layers = space().folder(name + ".upper"), work = space().folder(name + ".work");
    mountVolume("layers", space().folder(name), "overlay",
                "lowerdir=" + lower + ",upperdir=" + layers + ",workdir=" + work);
  };
  overlay("over", space().path("fuse"));
  overlay("local", space().folder("lower"));
  const std::string whole = space().folder("whole");
  mountVolume(spare.node(), whole, "ext4");
  for (const std::string& file : {whole + "/file", space().path("local/file")}) std::ofstream(file) << "x";
  ASSERT_EQ(mkdir((whole + "/reel").c_str(), 0755), 0);
  bindMount(whole + "/reel", space().path("over/clips/reel"));
  bindMount(whole + "/file", space().path("local/file"));
  unmount(whole);
  server.stop();
  const auto start = std::chrono::steady_clock::now();
  Observer observer(space().scratch());
  EXPECT_TRUE(observer.waitFor([&] { return observer.all().size() == 4; }));
  EXPECT_EQ(observer.present(), (Observer::Lines{"folder", "fuse", "fuse/clips", "over/clips/reel"}));
  EXPECT_EQ(observer.hidingRule("local/file"), "file");
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
