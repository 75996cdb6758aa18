// SPDX-License-Identifier: MIT
// Volumes of paths, walks, attributes, child processes, versions, services of the network.
#include <sys/mount.h>

#include "platform/macos/MacPlatform.h"
#include "platform/macos/MacTest.h"
#include "platform/macos/MountTable.h"
#include "platform/posix/WalkReader.h"
#include "support/TemporaryFolder.h"
#include "support/Testing.h"

namespace kmv::macos {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class MacSystem : public MacTest {
 protected:
  std::optional<URL> volumeOf(const std::string& path) {
    return platform_.volumes().volumeURL(URL::fileURLWithPath(path, /*isDirectory=*/false));
  }

  test::TemporaryFolder folder_;
  MacPlatform platform_;
};

TEST_F(MacSystem, ALinkIsOnItsOwnVolumeAndWhatLeadsThroughItOnItsTargets) {
  fake::addMount(folder_ / "card", "apfs", "/dev/disk2s1", 0);
  fake::addMount(folder_.path(), "apfs", "/dev/disk1s1", 0);
  folder_.write("card/file", "x");
  folder_.link("link", "card/file");
  folder_.link("folder", "card");
  const auto outer = URL::fileURLWithPath(folder_.path().string(), true),
             inner = URL::fileURLWithPath((folder_ / "card").string(), true);
  EXPECT_EQ(volumeOf(folder_ / "card/file"), inner);
  EXPECT_EQ(volumeOf(folder_ / "folder/file"), inner);
  EXPECT_EQ(volumeOf(folder_ / "link"), outer);
  EXPECT_EQ(volumeOf(folder_ / "missing"), std::nullopt);
  EXPECT_EQ(platform_.volumes().volumeURL(*URL::fromString("file:relative")), std::nullopt);
  EXPECT_EQ(platform_.volumes().spaceAt(folder_ / "card/file"), (Space{4'096'000, 1'638'400, 1'228'800}));
}

TEST_F(MacSystem, AMountTableThatGrowsMeanwhileIsReadWhole) {
  for (int i = 0; i < 40; ++i) fake::addMount("/Volumes/" + std::to_string(i), "apfs", "/dev/disk2", 0);
  fake::addMount("/net", "autofs", "map", MNT_UNION);
  EXPECT_EQ(mountTable().size(), 41u);
  fake::growMountTable(20);
  EXPECT_EQ(mountTable().size(), 61u);
  const auto hidden = platform_.volumes().hiddenMounts();
  ASSERT_EQ(hidden.size(), 1u);
  EXPECT_EQ(hidden.front().rule, "union");
}

TEST_F(MacSystem, PathAliasesAreThePlatforms) {
  EXPECT_THAT(platform_.files().pathAliasPrefixes(),
              ElementsAre("/private/var/automount", "/var/automount", "/private"));
}

TEST_F(MacSystem, AWalkHasHelpersOnTheVolumeOfAServerAndKeepsItsOrder) {
  fake::addMount(folder_.path(), "smbfs", "//host/share", 0);  // not MNT_LOCAL
  for (int i = 0; i < 300; ++i) folder_.write(std::to_string(i % 7) + "/" + std::to_string(i), "x");
  std::size_t files = 0;
  platform_.treeWalk().visitFiles(folder_.path(), "", [&](const WalkedFile& file) {
    files += file.size;
    return true;
  });
  EXPECT_EQ(files, 300u);
}

TEST_F(MacSystem, AFolderThatLacksADescriptorToBeListedIsListedAgainLater) {
  folder_.write("file", "x");
  WalkReader reader("", folder_.path());
  WalkedFolder walked(folder_.path(), nullptr, 0);
  rlimit before{};
  ::getrlimit(RLIMIT_NOFILE, &before);
  const FileDescriptor lastTaken(::dup(STDIN_FILENO));
  const rlimit oneMore{static_cast<rlim_t>(lastTaken.get()) + 2, before.rlim_max};
  ::setrlimit(RLIMIT_NOFILE, &oneMore);
  reader.list(walked);
  EXPECT_TRUE(walked.isStarved);
  EXPECT_FALSE(walked.descriptor);
  ::setrlimit(RLIMIT_NOFILE, &before);
  reader.list(walked);
  EXPECT_FALSE(walked.isStarved);
  EXPECT_EQ(walked.items.size(), 1u);
}

TEST_F(MacSystem, VersionsAreReadFromTheirText) {
  const struct {
    const char* text;
    int major, minor, patch;
  } table[] = {
      {"14.5", 14, 5, 0}, {"15", 15, 0, 0}, {"26.0.1", 26, 0, 1}, {"10.16", 10, 16, 0}, {"", 0, 0, 0}};
  for (const auto& [text, major, minor, patch] : table) {
    fake::setSystemVersion(text);
    const auto version = platform_.systemInformation().operatingSystemVersion();
    EXPECT_EQ(version.major, major) << text;
    EXPECT_EQ(version.minor, minor) << text;
    EXPECT_EQ(version.patch, patch) << text;
  }
  fake::setSystemVersion(std::string(100, '9'));
  EXPECT_EQ(platform_.systemInformation().operatingSystemVersion().major, 0) << "no room for it";
}

TEST_F(MacSystem, AChildHasTheHostsErrorsUnlessTheyAreCollectedAndItsEnvironment) {
  ::setenv("KMV_TOLD", "told", 1);
  ChildProcess& child = platform_.childProcess();
  const std::string shell = "/bin/sh";
  const auto run = [&](bool collectsErrors) {
    return child.run({shell, {"-c", "echo $KMV_TOLD; echo wrong >&2; exit 3"}, collectsErrors});
  };
  EXPECT_EQ(run(true).output, "told\nwrong\n");
  EXPECT_THAT(fake::inheritedDescriptors(), IsEmpty());
  ::testing::internal::CaptureStderr();
  const auto apart = run(false);
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "wrong\n");
  EXPECT_THAT(fake::inheritedDescriptors(), ElementsAre(STDERR_FILENO)) << "the platform closes all others";
  EXPECT_EQ(apart.output, "told\n");
  EXPECT_EQ(apart.exitStatus, 3);
  EXPECT_TRUE(child.exists(shell));
  EXPECT_FALSE(child.exists("/no/such/program"));
  EXPECT_FALSE(child.run({"/no/such/program", {}, false}).started);
}

TEST_F(MacSystem, TheAttributeToolGetsTheNameAsItStands) {
  const auto ran =
      platform_.extendedAttributes().runTool({"/bin/echo", "-w", "ltfs.x", "value", "/file", false});
  EXPECT_EQ(ran.output, "-w ltfs.x value /file\n");
}

class MacServices : public MacTest {
 protected:
  struct Ear : NetServiceBrowserDelegate {
    void netServiceBrowserDidFindDomain(NetServiceBrowser*, const std::string&, bool) override {}
    void netServiceBrowserDidFindService(NetServiceBrowser* from, const std::string& service,
                                         bool more) override {
      EXPECT_EQ(from, browser);
      heard.push_back(service + (more ? " +" : ""));
      if (endsItself) from->setDelegate(nullptr);
    }
    NetServiceBrowser* browser = nullptr;
    bool endsItself = false;
    std::vector<std::string> heard;
  };
  std::vector<std::string> heard() {
    fake::runUntilIdle();
    return std::exchange(ear_.heard, {});
  }

  MacPlatform platform_;
  Ear ear_;
};

TEST_F(MacServices, WhatIsFoundIsToldUntilTheDelegateOrTheBrowserGoes) {
  auto browser = platform_.makeServiceBrowser();
  ear_.browser = browser.get();
  browser->setDelegate(&ear_);
  browser->setIncludesPeerToPeer(true);
  browser->searchForServicesOfType("_services._dns-sd._udp.", "");
  fake::announceService("_http", true);
  fake::announceService("_smb", false);
  fake::removeService("_http");
  EXPECT_THAT(heard(), ElementsAre("_http +", "_smb"));
  browser->setIncludesPeerToPeer(false);
  browser->searchForServicesOfType("_http._tcp.", "local.");
  fake::announceService("once", false);
  EXPECT_THAT(heard(), ElementsAre("once")) << "the search before has ended";
  EXPECT_THAT(fake::searches(),
              ElementsAre("_services._dns-sd._udp. in  flags 1179648", "_http._tcp. in local. flags 0"));
  ear_.endsItself = true;
  fake::announceService("last", true);
  fake::announceService("unheard", false);
  EXPECT_THAT(heard(), ElementsAre("last +"));
  browser->setDelegate(&ear_);
  fake::announceService("on its way", false);
  browser.reset();
  ear_.heard.clear();
  EXPECT_THAT(heard(), IsEmpty());
}

}  // namespace
}  // namespace kmv::macos
