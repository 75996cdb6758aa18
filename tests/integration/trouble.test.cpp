// SPDX-License-Identifier: MIT
// Servers that do not answer, and users without rights.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "support/Sanitizers.h"

namespace kmv::integration {
namespace {

using nlohmann::json;
using Milliseconds = std::chrono::milliseconds;

template <typename Action>
Milliseconds timeOf(Action action) {
  const auto start = std::chrono::steady_clock::now();
  action();
  return std::chrono::ceil<Milliseconds>(std::chrono::steady_clock::now() - start);
}

/// The paths of the drives below `folder` that kmvdrive lists.
std::set<std::string> listedBelow(const std::string& folder, const std::string& program,
                                  const Process::Words& environment) {
  const Ran list = run({program, "list", "--json"}, environment);
  EXPECT_EQ(list.exitCode, 0);
  std::set<std::string> names;
  const json document = json::parse(list.output);
  for (const json& drive : document.at("drives")) {
    const auto path = drive.at("path").get<std::string>();
    if (path.starts_with(folder + "/")) names.insert(path.substr(folder.size() + 1));
  }
  return names;
}

TEST_F(FuseStory, AServerThatDoesNotAnswerDelaysNobody) {
  const LoopDevice card = newVolume("ext4", "Card"), other = newVolume("ext4", "Other");
  FuseServer server(space().folder("fuse"));
  const std::string second = space().folder("second");
  const std::set<std::string> all{"fuse", "fuse/folder", "folder"};
  // A drive that is reached through the server, and a folder of that drive.
  mountVolume(card.node(), space().path("fuse/folder"), "ext4");
  ASSERT_EQ(mkdir(space().path("fuse/folder/clips").c_str(), 0755), 0);
  bindMount(space().path("fuse/folder/clips"), space().folder("clips"));
  mountVolume(other.node(), space().folder("folder"), "ext4");

  const auto list = [&] { EXPECT_EQ(listedBelow(space().scratch(), KMVDRIVE_PROGRAM, {}), all); };
  const Milliseconds usual = timeOf(list);
  const Milliseconds limit = 3 * usual + Milliseconds(300);
  server.stop();
  EXPECT_LE(timeOf(list), limit);

  std::optional<Observer> observer;
  const Milliseconds start = timeOf([&] {
    observer.emplace(space().scratch());
    EXPECT_TRUE(observer->waitFor([&] { return observer->present().size() == all.size(); }));
  });
  EXPECT_LE(start, limit);
  observer->waitFor([&] { return observer->all().size() == all.size(); });
  const Milliseconds events = timeOf([&] {
    unmount(space().path("folder"));
    EXPECT_TRUE(observer->waitFor([&] { return observer->all().back() == "removed folder"; }));
    mountVolume(other.node(), second, "ext4");
    EXPECT_TRUE(observer->waitFor([&] { return observer->all().back() == "added second"; }));
  });
  EXPECT_LE(events, limit);
  EXPECT_EQ(observer->hidingRule("clips"), "folder");
  server.resume();
}

#ifndef KMV_THREAD_SANITIZER

class PlainUserStory : public Story {
 protected:
  void SetUp() override {
    if (const std::string missing = missingForFuse(); !missing.empty()) GTEST_SKIP() << missing;
    const std::string names[] = {KMVDRIVE_PROGRAM, KMV_HELLO_FILE_SYSTEM, KMVDRIVE_LIBRARY};
    // Opened now: a plain user may not get to where these were built.
    std::vector<int> files;
    for (const std::string& name : names) files.push_back(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    begin(missingForUserNamespaces(), Namespace::As::plainUser);
    if (IsSkipped()) return;
    space().folder("bin");
    const std::string copies[] = {"bin/kmvdrive", "bin/hello", "bin/" KMVDRIVE_LIBRARY_NAME};
    for (std::size_t i = 0; i < files.size(); ++i) {
      std::filesystem::copy_file("/proc/self/fd/" + std::to_string(files[i]), space().path(copies[i]));
      std::filesystem::permissions(space().path(copies[i]), std::filesystem::perms(0755));
      close(files[i]);
    }
  }

  std::set<std::string> listed() const {
    return listedBelow(space().scratch(), space().path("bin/kmvdrive"),
                       {"LD_LIBRARY_PATH=" + space().path("bin")});
  }
};

TEST_F(PlainUserStory, APlainUserSeesWhatAPlainUserMounts) {
  Observer observer(space().scratch());
  const std::string point = space().folder("fuse"), again = space().folder("again");
  mountVolume("nothing", space().folder("memory"), "tmpfs");
  FuseServer server(point, space().path("bin/hello"));
  observer.expect({"added fuse"});
  bindMount(point, again);
  observer.expect({});
  EXPECT_EQ(observer.hidingRule("again"), "bind");
  EXPECT_EQ(observer.hidingRule("memory"), "pseudo");
  EXPECT_EQ(listed(), std::set<std::string>{"fuse"});
  unmount(point);
  observer.expect({"removed fuse", "added again"});
  unmount(again);
  observer.expect({"removed again"});
}

#endif

}  // namespace
}  // namespace kmv::integration
