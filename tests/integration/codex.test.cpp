// SPDX-License-Identifier: MIT
// A Codex volume served for real: recognised, watched until it is built, sized, announced; and in the hands
// of a server that hangs or dies.
#include <sys/xattr.h>

#include "integration/support/FuseServer.h"
#include "integration/support/Observer.h"
#include "integration/support/Story.h"
#include "support/OtherThreads.h"
#include "support/Testing.h"

namespace kmv::integration {
namespace {

using Wrapper = std::shared_ptr<CodexVirtualFileSystemWrapper>;

constexpr char kBuilt[] = R"({"status":"built"})";

class CodexStory : public FuseStory {
 protected:
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
  /// How many requests the last server has answered.
  double requests() const {
    char text[32] = {};
    getxattr(point.c_str(), "user.requests", text, sizeof text - 1);
    return std::atof(text);
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
  static URL urlOf(const std::string& path) { return URL::fileURLWithPath(path, /*isDirectory=*/false); }

  std::string point;
};

// 1000 + 3000 + 1 + 42 + 8 + 7 + 5000; the document itself comes to it.
constexpr std::int64_t kClips = 9058;

TEST_F(CodexStory, IsWatchedUntilItIsBuiltAndThenSizedAndAnnouncedOnce) {
  Observer observer(space().scratch());
  const FuseServer server = serve("codex");
  ASSERT_TRUE(observer.waitFor([&] { return observer.drive("codex") != nullptr; }));
  std::vector<const void*> announced;
  const auto registration = NotificationCenter::defaultCenter().addObserver(
      virtualFileSystemWrapperHasUpdated, [&](const Notification& notification) {
        mainQueue().async([&, object = notification.object.object()] { announced.push_back(object.get()); });
      });
  const Wrapper wrapper = wrapperOf(observer, point + "/clips/A001.ari");
  ASSERT_NE(wrapper, nullptr);
  EXPECT_EQ(wrapperOf(observer, point), wrapper);
  EXPECT_EQ(wrapper->estimatedVFSSize(), std::nullopt);
  write(kBuilt);
  ASSERT_TRUE(observer.waitFor([&] { return !announced.empty(); }));
  const std::int64_t size = kClips + static_cast<std::int64_t>(sizeof kBuilt - 1);
  EXPECT_EQ(wrapper->estimatedVFSSize(), size);
  const std::pair<const char*, std::int64_t> sizes[] = {{"", size},
                                                        {"/clips", size},
                                                        {"/clips/reel", 5000},
                                                        {"/clips/odd \xff\n name", 42}};  // a loop leads up
  for (const auto& [path, bytes] : sizes)
    EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point + path)), bytes) << path;
  EXPECT_EQ(
      codexExtendedAttributes(urlOf(point + "/clips/A001.ari")).at(CodexExtendedAttributes::decodedSize),
      2000);
  EXPECT_EQ(wrapper->vfsLastModifiedDate(), Date{1'700'000'000 - 978'307'200});
  EXPECT_EQ(announced, std::vector<const void*>{static_cast<Object*>(wrapper.get())});
  unmount(point);  // not busy: nothing on it is open
  ASSERT_TRUE(observer.waitFor([&] { return observer.drive("codex") == nullptr; }));
}

TEST_F(CodexStory, ALargeVolumeCostsFewRequestsAndIsAddedUpExactly) {
  Observer observer(space().scratch());
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
    const auto wrapper = CodexVirtualFileSystemWrapper::initWithRoot(urlOf(point));
    wrapper->getFileSizeOfItem(urlOf(point + "/missing"));  // behind the estimate
    EXPECT_EQ(wrapper->estimatedVFSSize(), expected);
    const double before = requests();
    EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point)), expected);
    EXPECT_LE((requests() - before) / (kFolders * kFiles), most) << keeps;
  }
}

TEST_F(CodexStory, ItsDocumentIsReadPastAStaleCache) {
  const FuseServer server = serve("codex", {"--keeps=600"});
  const auto wrapper = CodexVirtualFileSystemWrapper::initWithRoot(urlOf(point));
  EXPECT_FALSE(wrapper->vfsIsReady()) << "and from now on the kernel has the document in its page cache";
  std::string document = kBuilt;
  document.resize(std::filesystem::file_size(point + "/.codexvfs"), ' ');  // its size is cached too
  write(document);
  EXPECT_TRUE(wrapper->vfsIsReady());
}

TEST_F(CodexStory, AServerThatHangsOrDiesKeepsNobodyWaitingButWhoAsksAboutIt) {
  Observer observer(space().scratch());
  FuseServer hanging = serve("hanging");
  FuseServer healthy = serve("codex");
  ASSERT_TRUE(observer.waitFor([&] { return observer.drive("codex") && observer.drive("hanging"); }));
  const Wrapper watched = wrapperOf(observer, space().path("hanging"));
  ASSERT_NE(watched, nullptr);
  watched->vfsIsReady();  // and so two chains of checks
  hanging.stop();
  watched->updateWrapper(/*shouldUpdateSize=*/false);  // hangs on its own queue
  std::vector<decltype(ask(observer, ""))> late;
  for (int i = 0; i < 2000; ++i) late.push_back(ask(observer, space().path("hanging")));

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
  EXPECT_LT(test::otherThreads(), 20) << "one of them waits for the answers";
  EXPECT_FALSE(late.front()->has_value());
  hanging.resume();
  for (const auto& answer : late) {
    ASSERT_TRUE(observer.waitFor([&] { return answer->has_value(); }));
    EXPECT_EQ(**answer, watched);
  }

  healthy.end();
  EXPECT_TRUE(wrapper->vfsIsReady()) << "what is built is not asked again";
  EXPECT_EQ(wrapper->getFileSizeOfItem(urlOf(point)), 0);
  EXPECT_EQ(wrapper->vfsFileAttributes(), std::nullopt);
  hanging.stop();
  watched->updateWrapper(/*shouldUpdateSize=*/false);  // and so the process ends
}

TEST_F(CodexStory, AWalkOutlivesItsServer) {
  FuseServer server =
      serve("codex", {"--folders=2", "--files=20000", "--keeps=600", "--delay=1000", "--no-clips"});
  const auto wrapper = CodexVirtualFileSystemWrapper::initWithRoot(urlOf(point));
  std::atomic<std::int64_t> size{-1};
  std::thread walk([&] { size = wrapper->getFileSizeOfItem(urlOf(point)); });
  ASSERT_TRUE(eventually([&] { return requests() > 500; }));
  server.end();
  walk.join();
  EXPECT_GT(size, 0);
  EXPECT_LT(size, 40'000 * 1000) << "what was seen up to then";
}

}  // namespace
}  // namespace kmv::integration
