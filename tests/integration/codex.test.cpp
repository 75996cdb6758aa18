// SPDX-License-Identifier: MIT
// A Codex volume served for real: recognised, watched until it is built, sized, announced; and in the hands
// of a server that hangs or dies.
#include <KMVDriveLibrary/KMVDriveLibrary.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "support/Guarded.h"

namespace kmv::integration {
namespace {

using Wrapper = std::shared_ptr<CodexVirtualFileSystemWrapper>;

constexpr char kBuilt[] = R"({"status":"built"})";

class CodexStory : public FuseStory {
 protected:
  void SetUp() override {
    FuseStory::SetUp();
    if (IsSkipped()) return;
    OrvaneLog::defaultLog().setSink([lines = lines_](OrvaneLog::Level, std::string_view line) {
      lines.with([&](auto& all) { all.emplace_back(line); });
    });
  }
  void TearDown() override { OrvaneLog::defaultLog().setSink(nullptr); }

  /// A Codex volume at a new folder of this name; `write` is about the last one.
  FuseServer serve(const std::string& name, const Process::Words& options = {}) {
    point = space().folder(name);
    Process::Words words{KMV_CODEX_FILE_SYSTEM, point};
    words.insert(words.end(), options.begin(), options.end());
    return FuseServer(point, words);
  }
  void write(const std::string& document) {
    ASSERT_EQ(setxattr(point.c_str(), "user.document", document.data(), document.size(), 0), 0);
  }
  /// Asks for the wrapper of a path; the answer comes later.
  static std::shared_ptr<std::optional<Wrapper>> ask(Observer& observer, const std::string& path) {
    auto answer = std::make_shared<std::optional<Wrapper>>();
    const auto url = URL::fileURLWithPath(path, /*isDirectory=*/false);
    const auto drive = observer.arbiter().findRootMountDictionaryForURL(url);
    KMVDriveWrapperManager::sharedInstance().codexVFSWrapper(
        url, *drive->snapshot(), /*requireIsReady=*/true,
        [answer](const Wrapper& wrapper) { mainQueue().async([answer, wrapper] { *answer = wrapper; }); });
    return answer;
  }
  Wrapper wrapperOf(Observer& observer, const std::string& path) {
    const auto answer = ask(observer, path);
    EXPECT_TRUE(observer.waitFor([&] { return answer->has_value(); }));
    return answer->value_or(nullptr);
  }
  std::size_t count(const std::string& line) {
    return lines_.with(
        [&](auto& all) { return static_cast<std::size_t>(std::count(all.begin(), all.end(), line)); });
  }
  static URL urlOf(const std::string& path) { return URL::fileURLWithPath(path, /*isDirectory=*/false); }

  std::string point;

 private:
  Guarded<std::vector<std::string>> lines_;
};

// 1000 + 3000 + 42 + 8 + 7 + 5000; the document itself comes to it.
constexpr std::int64_t kClips = 9057;

TEST_F(CodexStory, IsWatchedUntilItIsBuiltAndThenSizedAndAnnouncedOnce) {
  Observer observer(space().scratch());
  const FuseServer server = serve("codex");
  observer.arbiter().startArbiter();
  ASSERT_TRUE(observer.waitFor([&] { return observer.drive("codex") != nullptr; }));
  std::vector<const void*> announced;
  const auto registration = NotificationCenter::defaultCenter().addObserver(
      virtualFileSystemWrapperHasUpdated, [&](const Notification& notification) {
        mainQueue().async([&, object = notification.object.object()] { announced.push_back(object.get()); });
      });

  const Wrapper wrapper = wrapperOf(observer, point + "/clips/A001.ari");
  ASSERT_NE(wrapper, nullptr);
  EXPECT_EQ(wrapperOf(observer, point), wrapper);
  EXPECT_EQ(count("KMV-Codex new wrapper created."), 1u);
  EXPECT_EQ(KMVDriveWrapperManager::sharedInstance().codexVFSWrappers().count(point), 1u);
  EXPECT_EQ(wrapper->estimatedVFSSize(), std::nullopt);
  ASSERT_TRUE(observer.waitFor([&] { return count("KMV_CodexVFS-Codex VFS now built after delay!") == 2; }));
  EXPECT_FALSE(wrapper->sizeIsCalculated());
  write(kBuilt);
  ASSERT_TRUE(observer.waitFor([&] { return !announced.empty(); }));
  const std::int64_t size = kClips + static_cast<std::int64_t>(sizeof kBuilt - 1);
  EXPECT_EQ(wrapper->estimatedVFSSize(), size);
  EXPECT_EQ(count("KMV_CodexVFS-Finished estimating size 9 KB for codex VFS at: `" + point + "`"), 1u);
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point)), size);
  EXPECT_EQ(wrapper->estimatedVFSSize(), size) << "a second walk changes nothing";
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point + "/clips")), size) << "the loop leads to the document";
  EXPECT_EQ(wrapper->estimatedVFSSize(), size + static_cast<std::int64_t>(sizeof kBuilt - 1))
      << "which is remembered by this path, too";
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point + "/clips/reel")), 5000);
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point + "/clips/odd \xff\n name")), 42);
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point + "/clips/missing")), 0);
  const auto attributes = codexExtendedAttributes(urlOf(point + "/clips/A001.ari"));
  EXPECT_EQ(attributes.at(CodexExtendedAttributes::decodedSize), 2000);
  EXPECT_EQ(attributes.at(CodexExtendedAttributes::extimatedHDESize), 1000);
  EXPECT_EQ(wrapper->vfsLastModifiedDate(), Date{1'700'000'000 - 978'307'200});
  // Files grow: the new size replaces the one before.
  const std::int64_t known = *wrapper->estimatedVFSSize();
  ASSERT_EQ(setxattr((point + "/clips/A002.ari").c_str(), "user.size", "70", 2, 0), 0);
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point)), size + 70);
  EXPECT_EQ(wrapper->estimatedVFSSize(), known + 70);
  EXPECT_EQ(announced, std::vector<const void*>{static_cast<Object*>(wrapper.get())});
  unmount(point);  // not busy: nothing on it is open
  ASSERT_TRUE(observer.waitFor([&] { return observer.drive("codex") == nullptr; }));
}

TEST_F(CodexStory, ALargeVolumeCostsFewRequestsAndIsAddedUpExactly) {
  Observer observer(space().scratch());
  observer.arbiter().startArbiter();
  constexpr int kFolders = 20, kFiles = 100;
  std::int64_t expected = sizeof kBuilt - 1;
  for (int d = 0; d < kFolders; ++d) {
    for (int f = 0; f < kFiles; ++f) expected += 1000 + (d + f) % 1000;
  }
  const std::tuple<const char*, const char*, double> cases[] = {
      {"--keeps=600", "", 1.06}, {"--keeps=0", "", 2.1}, {"--keeps=1", "--no-types", 3}};
  for (const auto& [keeps, types, most] : cases) {
    const std::string folder = keeps + 2;
    const FuseServer server = serve(folder, {"--folders=20", "--files=100", "--no-clips", keeps, types});
    ASSERT_TRUE(observer.waitFor([&] { return observer.drive(folder) != nullptr; }));
    write(kBuilt);
    const auto requests = [&] {
      char text[32] = {};
      getxattr(point.c_str(), "user.requests", text, sizeof text - 1);
      return std::stod(text);
    };
    const auto wrapper = CodexVirtualFileSystemWrapper::initWithRoot(urlOf(point));
    wrapper->getFileSizeOfItem(urlOf(point + "/missing"));  // behind the estimate
    EXPECT_EQ(wrapper->estimatedVFSSize(), expected);
    const double before = requests();
    EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point)), expected);
    EXPECT_LE((requests() - before) / (kFolders * kFiles), most) << keeps;
  }
}

TEST_F(CodexStory, AServerThatHangsOrDiesKeepsNobodyWaitingButWhoAsksAboutIt) {
  Observer observer(space().scratch());
  observer.arbiter().startArbiter();
  FuseServer hanging = serve("hanging");
  FuseServer healthy = serve("codex");
  ASSERT_TRUE(observer.waitFor([&] { return observer.drive("codex") && observer.drive("hanging"); }));
  const Wrapper watched = wrapperOf(observer, space().path("hanging"));
  ASSERT_NE(watched, nullptr);
  watched->vfsIsReady();  // and so two chains of checks
  hanging.stop();
  watched->updateWrapper(/*shouldUpdateSize=*/false);  // hangs on its own queue
  const auto late = ask(observer, space().path("hanging"));

  const Wrapper wrapper = wrapperOf(observer, point);
  ASSERT_NE(wrapper, nullptr);
  wrapper->getFileSizeOfItem(urlOf(point + "/missing"));  // behind the look that follows the making
  write(kBuilt);
  const auto size = std::make_shared<std::atomic<std::int64_t>>(0);
  wrapper->setSizeUpdated([size](std::int64_t bytes) { *size = bytes; });
  ASSERT_TRUE(observer.waitFor([&] { return *size > 0; })) << "checked on the main queue, which goes on";
  const LoopDevice card = newVolume("ext4", "Card");
  mountVolume(card.node(), space().folder("card"), "ext4");
  ASSERT_TRUE(observer.waitFor([&] { return observer.drive("card") != nullptr; })) << "drives are filed";
  EXPECT_FALSE(late->has_value());
  hanging.resume();
  ASSERT_TRUE(observer.waitFor([&] { return late->has_value(); }));
  EXPECT_EQ(**late, watched);

  healthy.kill();
  EXPECT_TRUE(wrapper->vfsIsReady()) << "what is built is not asked again";
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point)), 0);
  EXPECT_EQ(wrapper->vfsFileAttributes(), std::nullopt);
  hanging.stop();
  watched->updateWrapper(/*shouldUpdateSize=*/false);  // and so the process ends
}

TEST_F(CodexStory, TheToolShowsItsStateAndItsSizeAsItComes) {
  Process watch({KMVDRIVE_PROGRAM, "watch", "--json"});
  const auto nextOf = [&](const std::string& event) {
    for (;;) {
      const auto line = watch.readLine();
      if (!line) return nlohmann::json();
      auto read = nlohmann::json::parse(*line);
      if (read["event"] == event &&
          read.value("path", read.value("drive", nlohmann::json::object()).value("path", "")) == point)
        return read;
    }
  };
  const FuseServer server = serve("codex");
  EXPECT_EQ(nextOf("codex").value("state", ""), "initialising");
  EXPECT_THAT(run({KMVDRIVE_PROGRAM, "list", "-v"}).output, ::testing::HasSubstr("initialising"));
  write(kBuilt);
  const auto built = nextOf("codex");
  const std::int64_t size = kClips + static_cast<std::int64_t>(sizeof kBuilt - 1);
  EXPECT_EQ(built.value("state", ""), "built");
  EXPECT_EQ(built.value("size", 0), size);
  const auto list = nlohmann::json::parse(run({KMVDRIVE_PROGRAM, "list", "-v", "--json"}).output);
  const auto drive = std::find_if(list["drives"].begin(), list["drives"].end(),
                                  [&](const auto& one) { return one["path"] == point; });
  ASSERT_NE(drive, list["drives"].end());
  EXPECT_EQ((*drive)["codex"], (nlohmann::json{{"state", "built"}, {"size", size}}));
#ifdef KMV_CODEX_SIZE  // the example
  EXPECT_EQ(run({KMV_CODEX_SIZE, point + "/clips"}).output, std::to_string(size) + " bytes\n");
#endif
}

TEST_F(CodexStory, AWalkOutlivesItsServer) {
  FuseServer server =
      serve("codex", {"--folders=2", "--files=20000", "--keeps=600", "--delay=1000", "--no-clips"});
  const auto wrapper = CodexVirtualFileSystemWrapper::initWithRoot(urlOf(point));
  std::atomic<std::int64_t> size{-1};
  std::thread walk([&] { size = wrapper->getFileSizeOfItem(urlOf(point)); });
  const auto requests = [&] {
    char text[32] = {};
    getxattr(point.c_str(), "user.requests", text, sizeof text - 1);
    return std::stol(text);
  };
  ASSERT_TRUE(eventually([&] { return requests() > 500; }));
  server.kill();
  walk.join();
  EXPECT_GT(size, 0);
  EXPECT_LT(size, 40'000 * 1000) << "what was seen up to then";
}

TEST_F(CodexStory, TreesOfEveryShapeAreAddedUp) {
  const FuseServer server = serve("flat", {"--folders=1", "--files=30000", "--keeps=600", "--no-clips"});
  const auto wrapper = CodexVirtualFileSystemWrapper::initWithRoot(urlOf(point));
  std::int64_t expected = 0;
  for (int f = 0; f < 30'000; ++f) expected += 1000 + f % 1000;
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point + "/d00000")), expected);

  const std::string root = space().folder("trees");
  std::string folder = root + "/deep";
  int depth = 0;
  for (; folder.size() < 3900;
       ++depth, folder += "/" + std::string(20, 'd')) {  // nearly as long as paths can be
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/file") << "12345";
  }
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(root + "/deep")), 5 * depth);
  std::filesystem::create_directory(root + "/wide");
  for (int i = 0; i < 3000; ++i) {
    const std::string sub = root + "/wide/" + std::to_string(i);
    std::filesystem::create_directory(sub);
    std::ofstream(sub + "/file") << "1";
  }
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(root + "/wide")), 3000);
  // Links: one that is followed, twice the same folder by contract, and loops of one and of two.
  std::filesystem::create_directories(root + "/links/a/b");
  std::ofstream(root + "/links/a/b/file") << "123";
  std::filesystem::create_directory_symlink("a", root + "/links/again");
  std::filesystem::create_directory_symlink("../..", root + "/links/a/b/up");
  std::filesystem::create_directory_symlink(".", root + "/links/self");
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(root + "/links")), 3 + 3);
  // With hardly a descriptor left, which the folders that lie ahead would like to have.
  for (int i = 0; i < 200; ++i) {
    const std::string sub = root + "/wide/" + std::to_string(i) + "/below";
    std::filesystem::create_directory(sub);
    std::ofstream(sub + "/file") << "1";
  }
  rlimit descriptors{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &descriptors), 0);
  const int next = dup(0);
  close(next);
  const rlimit few{static_cast<rlim_t>(next) + 5, descriptors.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &few), 0);
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(root + "/wide")), 3200);
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &descriptors), 0);
  // A walk that is given up, in the middle of a folder behind a link.
  std::filesystem::create_directory(root + "/given up");
  std::filesystem::create_directory_symlink(root + "/wide", root + "/given up/link");
  int asked = 0;
  EXPECT_EQ(CrossAppFileManager::defaultManager().aggregateFileSize(
                urlOf(root + "/given up"), [&] { return ++asked <= 1000; }, 0),
            1000u);
}

TEST_F(CodexStory, AHostileDocumentIsUnreadable) {
  const LoopDevice card = newVolume("ext4", "Card");
  const std::string root = space().folder("card"), document = root + "/.codexvfs";
  mountVolume(card.node(), root, "ext4");
  std::ofstream(root + "/document") << kBuilt;
  const std::function<void()> hostile[] = {
      [&] { ASSERT_EQ(mkfifo(document.c_str(), 0644), 0); },
      [&] { std::filesystem::create_symlink("document", document); },
      [&] { std::ofstream(document) << std::string(100'000, ' ') << kBuilt; },
      [&] { ASSERT_EQ(mknod(document.c_str(), S_IFBLK | 0600, makedev(7, 250)), 0); }};
  std::size_t complaints = 0;
  for (const auto& make : hostile) {
    make();
    EXPECT_FALSE(CodexVirtualFileSystemWrapper::initWithRoot(urlOf(root))->vfsIsReady());
    const std::size_t now = count("The file “.codexvfs” couldn’t be opened.");
    EXPECT_GT(now, complaints);
    complaints = now;
    std::filesystem::remove(document);
  }
  std::filesystem::rename(root + "/document", document);
  EXPECT_TRUE(CodexVirtualFileSystemWrapper::initWithRoot(urlOf(root))->vfsIsReady());
}

}  // namespace
}  // namespace kmv::integration
